// ArdCmdCom.exe as the service sees it: records its command line after the program's name, and fills the
// block with the process of the proxy, [GetVlpxPID] status= and pid=.
#include "ARDCommon/VlpxPidFormat.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/service/recording/Recorder.h"

namespace
{

void FillBlock()
{
    const vlt::KernelHandle section(
        OpenFileMappingA(FILE_MAP_WRITE, FALSE, (std::string("Global\\") + kVlpxPidSection).c_str()));
    const vlt::MappedView view(MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, 0));
    if (!view)
        return;
    auto* const block = static_cast<VlpxPidBlock*>(view.Get());
    block->status = static_cast<std::uint32_t>(vlt::record::Number("GetVlpxPID", "status", 0));
    block->processId = static_cast<std::uint32_t>(vlt::record::Number("GetVlpxPID", "pid", 0));
}

} // namespace

int main()
{
    const WString line = GetCommandLineW();
    const std::size_t program = line.find(TEXT("ArdCmdCom.exe"));
    WString rest = program == WString::npos ? line : line.substr(program + WStringView(TEXT("ArdCmdCom.exe")).size());
    if (!rest.empty() && rest.front() == '"')
        rest.erase(0, 1);
    vlt::record::Write("ArdCmdCom", "run", {{"arguments", rest.c_str()}});
    const std::string name = vlt::ToNarrow(rest.substr(rest.find('/') + 1));
    vlt::record::Hold(name.c_str());
    if (name == "GetVlpxPID")
        FillBlock();
    return vlt::record::Number("ArdCmdCom", "exit", 0);
}
