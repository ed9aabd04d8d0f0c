// ArdCmdCom, the command program that the service runs with one switch:
//
//   /WSCAntiVirusOn, /WSCAntiVirusOff, /WSCAntiSpywareOn, /WSCAntiSpywareOff
//       keeps the state that is reported to the security centre (SecurityCentreFormat.h)
//   /GetVlpxPID
//       fills the service's block (ARDCommon/VlpxPidFormat.h) from the running proxy
//
// Exit codes: 0 done, 1 no proxy runs and the block says so, 2 the system refused, 64 another command line.
#include "platform/Format.h"
#include "suite/ArdCmdCom/ProxyProcess.h"
#include "suite/ArdCmdCom/SecurityCentreFormat.h"
#include "suite/Channel/SharedObjects.h"
#include "suite/Channel/Text.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace
{

using namespace vlt;

enum Exit : int { Done = 0, NoProxy = 1, Refused = 2, Usage = 64 };

struct StateSwitch {
    LPCWSTR argument;
    LPCWSTR value;
    DWORD state;
};
constexpr StateSwitch kStateSwitches[] = {
    {TEXT("/WSCAntiVirusOn"), securitycentre::kAntiVirus, 1},
    {TEXT("/WSCAntiVirusOff"), securitycentre::kAntiVirus, 0},
    {TEXT("/WSCAntiSpywareOn"), securitycentre::kAntiSpyware, 1},
    {TEXT("/WSCAntiSpywareOff"), securitycentre::kAntiSpyware, 0},
};

Exit Keep(const StateSwitch& state)
{
    RegKey key;
    DWORD error = static_cast<DWORD>(RegCreateKeyExW(HKEY_LOCAL_MACHINE, securitycentre::kKey, 0, nullptr, 0,
                                                     KEY_SET_VALUE | KEY_WOW64_32KEY, nullptr, key.Receive(), nullptr));
    if (error == ERROR_SUCCESS)
        error = static_cast<DWORD>(RegSetValueExW(key.Get(), state.value, 0, REG_DWORD,
                                                  reinterpret_cast<const BYTE*>(&state.state), sizeof state.state));
    if (error != ERROR_SUCCESS)
        suite::FailWith(error, suite::Utf8(securitycentre::kKey));
    return Done;
}

// The status last, so that a reader that does not wait for the end of this program finds no half answer.
Exit TellProxy()
{
    const WString name = suite::GlobalName(kVlpxPidSection);
    const suite::Section section = suite::OpenSection(name, sizeof(VlpxPidBlock));
    if (!section)
        suite::FailWith(GetLastError(), suite::Utf8(name));
    auto& block = *static_cast<VlpxPidBlock*>(section.Data());
    const std::atomic_ref<std::uint32_t> status(block.status);
    status = 0;
    const auto information = cmd::FindProxy();
    if (!information) {
        block.processId = 0;
        return NoProxy;
    }
    std::memcpy(block.reserved4, &*information, sizeof *information);
    status = kVlpxPidValid;
    return Done;
}

Exit Run(WStringView argument)
{
    for (const StateSwitch& state : kStateSwitches) {
        if (argument == state.argument)
            return Keep(state);
    }
    if (suite::Utf8(argument) == kVlpxPidArgument)
        return TellProxy();
    std::fprintf(stderr, "ArdCmdCom: one of /WSCAntiVirusOn, /WSCAntiVirusOff, /WSCAntiSpywareOn, "
                         "/WSCAntiSpywareOff, /GetVlpxPID\n");
    return Usage;
}

} // namespace

extern "C" int wmain(int argc, WCHAR** argv)
try {
    return Run(argc == 2 ? argv[1] : WStringView());
} catch (const std::exception& error) {
    std::fprintf(stderr, "ArdCmdCom: %s\n", error.what());
    return Refused;
}
