#include "suite/vldbg64/HotSettings.h"

#include <algorithm>

namespace vlt::debug
{
namespace
{

constexpr WCHAR kSection[] = TEXT("debug");
constexpr ULONGLONG kLookEvery = 1000; // milliseconds

UINT Number(const WString& ini, LPCWSTR key, int usual, UINT least, UINT most)
{
    return std::clamp(GetPrivateProfileIntW(kSection, key, usual, ini.c_str()), least, most);
}

WString DefaultLogFile()
{
    WCHAR path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    const WStringView program(path, length < MAX_PATH ? length : 0);
    return WString(program.substr(0, program.rfind(TEXT('\\')) + 1)) + TEXT("Log\\ard.log");
}

std::unique_ptr<Settings> Read(const WString& ini, bool defaultOn)
{
    auto settings = std::make_unique<Settings>();
    settings->iniFile = ini;
    settings->defaultOn = defaultOn;
    settings->on = GetPrivateProfileIntW(kSection, TEXT("hot_switch"), defaultOn, ini.c_str()) != 0;
    settings->level = static_cast<int>(Number(ini, TEXT("level"), 50, 0, 1000));
    settings->maxBytes = Number(ini, TEXT("max_size"), 1024, 4, 1024 * 1024) * 1024;
    settings->oldFiles = Number(ini, TEXT("max_files"), 4, 1, 99);
    WCHAR path[MAX_PATH] = {};
    GetPrivateProfileStringW(kSection, TEXT("log_path"), TEXT(""), path, MAX_PATH, ini.c_str());
    settings->logFile = path[0] != 0 ? WString(path) : DefaultLogFile();
    return settings;
}

} // namespace

void HotSettings::Begin(WString iniFile, bool defaultOn)
{
    auto settings = Read(iniFile, defaultOn);
    settings->on = defaultOn; // what the caller found; the ini counts from the first look on
    Publish(std::move(settings), m_current);
}

const Settings* HotSettings::Current()
{
    const Settings* const current = m_current.load(std::memory_order_acquire);
    if (current == nullptr)
        return nullptr;
    const ULONGLONG now = GetTickCount64();
    ULONGLONG due = m_nextLook.load(std::memory_order_relaxed);
    if (now < due || !m_nextLook.compare_exchange_strong(due, now + kLookEvery))
        return current;
    auto settings = Read(current->iniFile, current->defaultOn);
    if (!(*settings == *current))
        Publish(std::move(settings), current);
    return m_current.load(std::memory_order_acquire);
}

// Whoever came first has said something newer.
void HotSettings::Publish(std::unique_ptr<Settings> settings, const Settings* expected)
{
    settings->before.reset(expected);
    if (m_current.compare_exchange_strong(expected, settings.get(), std::memory_order_acq_rel))
        settings.release();
    else
        static_cast<void>(settings->before.release());
}

} // namespace vlt::debug
