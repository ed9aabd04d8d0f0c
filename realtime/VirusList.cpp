#include "realtime/VirusList.h"

#include "ARDCommon/ProgramFolder.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/State.h"

namespace
{

constexpr std::size_t kNameLimit = 200;
constexpr std::size_t kBlock = 64 * 1024; // a pattern has many thousands of names

std::string LineOf(const AsVirusInfo& info)
{
    WString name = vlt::ToWide(std::string(vlt::FieldText(info.name)));
    if (name.size() > kNameLimit)
        name.resize(kNameLimit);
    return vlt::Format("%s,%lu,%lu,%lu\r\n", vlt::ToNarrow(name), info.id, info.kind, info.flags);
}

bool Write(HANDLE file, std::string& text)
{
    DWORD written = 0;
    const auto size = static_cast<DWORD>(text.size());
    const bool complete = WriteFile(file, text.data(), size, &written, nullptr) && written == size;
    text.clear();
    return complete;
}

} // namespace

bool WriteVirusList()
{
    const vlt::ArdScanTable& library = vlt::ScanLibrary();
    if (library.ASGetFirstVirusInfo == nullptr || library.ASGetNextVirusInfo == nullptr)
        return false;
    const vlt::FileHandle file(CreateFileW((vlt::ProgramFolder() + TEXT("virus.lst")).c_str(), GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return false;
    std::uint64_t cursor = 0;
    AsVirusInfo info{};
    std::string text;
    bool complete = true;
    std::int32_t more = library.ASGetFirstVirusInfo(vlt::ScanHandle(), &cursor, &info);
    while (more == 1 && complete) {
        text += LineOf(info);
        if (text.size() >= kBlock)
            complete = Write(file.Get(), text);
        if (complete)
            more = library.ASGetNextVirusInfo(vlt::ScanHandle(), &cursor, &info);
    }
    return complete && Write(file.Get(), text);
}
