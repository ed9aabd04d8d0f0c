// One registry read and one write of an open key beside the bare file calls, and the product's way
// (open the key, access one value, close) beside the same.
#include "bench/Measure.h"
#include "platform/Unique.h"

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{

constexpr WCHAR KeyName[] = TEXT("SOFTWARE\\Veltrano\\Ardentis\\15\\ScanInfo");
constexpr WCHAR ValueName[] = TEXT("LastDetectFile");
constexpr std::size_t ValueSize = 128;

vlt::RegKey OpenKey(REGSAM access)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, KeyName, 0, nullptr, REG_OPTION_NON_VOLATILE, access | KEY_WOW64_32KEY,
                        nullptr, &key, nullptr) != 0)
        std::abort();
    return vlt::RegKey(key);
}

void Read(HKEY key)
{
    BYTE data[ValueSize];
    DWORD size = sizeof data;
    DWORD type = 0;
    if (RegQueryValueExW(key, ValueName, nullptr, &type, data, &size) != 0)
        std::abort();
}

void Write(HKEY key, std::size_t round)
{
    BYTE data[ValueSize] = {};
    data[0] = static_cast<BYTE>(round);
    if (RegSetValueExW(key, ValueName, 0, REG_BINARY, data, sizeof data) != 0)
        std::abort();
}

template <typename Action>
bench::Body Repeat(Action action)
{
    return [action](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            action(i);
    };
}

void ReadFileBare(const std::string& path)
{
    char data[ValueSize];
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || read(file, data, sizeof data) != static_cast<ssize_t>(sizeof data))
        std::abort();
    close(file);
}

void WriteFileBare(const std::string& path, std::size_t round)
{
    char data[ValueSize] = {};
    data[0] = static_cast<char>(round);
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0 || write(file, data, sizeof data) != static_cast<ssize_t>(sizeof data))
        std::abort();
    close(file);
}

} // namespace

int main()
{
    const char* const root = std::getenv("VLT_ROOT"); // the files lie on the registry's file system
    if (!root)
        return 2;
    const std::string path = std::string(root) + "/bare-value";
    const vlt::RegKey key = OpenKey(KEY_READ | KEY_WRITE);
    Write(key.Get(), 0);
    close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    WriteFileBare(path, 0);

    const bench::Case fileRead{"open, read, close", Repeat([&](std::size_t) { ReadFileBare(path); })};
    const bench::Case fileWrite{"open, write, close", Repeat([&](std::size_t i) { WriteFileBare(path, i); })};
    bench::Title("Registry");
    bench::Compare({{"read of one value", Repeat([&](std::size_t) { Read(key.Get()); })}, fileRead}, {1.3}, {});
    bench::Compare({{"write of one value", Repeat([&](std::size_t i) { Write(key.Get(), i); })}, fileWrite}, {1.3}, {});
    bench::Compare(
        {{"open key, read, close key", Repeat([&](std::size_t) { Read(OpenKey(KEY_READ).Get()); })}, fileRead}, {}, {});
}
