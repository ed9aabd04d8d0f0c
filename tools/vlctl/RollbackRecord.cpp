#include "tools/vlctl/RollbackRecord.h"

#include "tools/vlctl/Command.h"
#include "tools/vlctl/RegistryValue.h"
#include "tools/vlctl/Text.h"

#include <cstring>
#include <optional>

namespace vlt::ctl
{
namespace
{

void Write(const RegKey& key, const WCHAR* name, DWORD type, const void* data, std::size_t size)
{
    const LSTATUS status =
        RegSetValueExW(key.Get(), name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(name));
}

std::optional<RegistryValue> Read(const RegKey& key, const WCHAR* name, DWORD type)
{
    try {
        RegistryValue value = ReadValue(key.Get(), Utf8(name));
        if (value.type == type)
            return value;
    } catch (const CommandError& error) {
        if (error.Code() != ExitNo)
            throw;
    }
    return std::nullopt;
}

} // namespace

RollbackRecord::RollbackRecord()
{
    const LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRollbackKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr, m_key.Receive(), nullptr);
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(kRollbackKey));
}

DWORD RollbackRecord::Get(const RollbackValue::Number& value) const
{
    DWORD number = value.fallback;
    if (const auto read = Read(m_key, value.name, REG_DWORD); read && read->data.size() == sizeof number)
        std::memcpy(&number, read->data.data(), sizeof number);
    return number;
}

void RollbackRecord::Set(const RollbackValue::Number& value, DWORD number) const
{
    Write(m_key, value.name, REG_DWORD, &number, sizeof number);
}

WString RollbackRecord::Get(const WCHAR* name) const
{
    const auto read = Read(m_key, name, REG_SZ);
    if (!read)
        return {};
    WString text(read->data.size() / sizeof(WCHAR), WCHAR());
    std::memcpy(text.data(), read->data.data(), text.size() * sizeof(WCHAR));
    return text.substr(0, text.find(WCHAR()));
}

void RollbackRecord::Set(const WCHAR* name, const WString& text) const
{
    Write(m_key, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

void RollbackRecord::StartProbation() const
{
    Set(RollbackValue::NormalCounter, 0);
    Set(RollbackValue::AbnormalCounter, 0);
    Set(RollbackValue::RollbackFlag, 1);
}

void RollbackRecord::EndProbation() const
{
    Set(RollbackValue::RollbackFlag, 0);
    Set(RollbackValue::NormalCounter, 0);
    Set(RollbackValue::AbnormalCounter, 0);
}

} // namespace vlt::ctl
