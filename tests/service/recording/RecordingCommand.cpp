// ArdCmdCom.exe as the service sees it: records its command line after the program's name.
#include "tests/service/recording/Recorder.h"

int main()
{
    const WString line = GetCommandLineW();
    const std::size_t program = line.find(TEXT("ArdCmdCom.exe"));
    WString rest = program == WString::npos ? line : line.substr(program + WStringView(TEXT("ArdCmdCom.exe")).size());
    if (!rest.empty() && rest.front() == '"')
        rest.erase(0, 1);
    vlt::record::Write("ArdCmdCom", "run", {{"arguments", rest.c_str()}});
    vlt::record::Hold("ArdCmdCom");
    return vlt::record::Number("ArdCmdCom", "exit", 0);
}
