// The host's main of a program whose entry is wmain. Compiled into each such program.
#include "platform/posix/core/Utf.h"
#include "platform/posix/service/Supervisor.h"
#include "platform/posix/win32/base.h"

#include <string>
#include <vector>

extern "C" int wmain(int argc, WCHAR** argv);

int main(int argc, char** argv)
{
    std::vector<std::u16string> texts;
    for (int i = 0; i < argc; ++i)
        texts.push_back(vlt::posix::Utf16FromUtf8(argv[i]));
    std::vector<WCHAR*> arguments;
    for (std::u16string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    const int code = wmain(argc, arguments.data());
    return code != 0 ? code : vlt::posix::service::ExitCodeOfService();
}
