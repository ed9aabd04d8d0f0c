// The folder that the suite is installed to, for the length of a test.
#pragma once

#include "ARDCommon/Registry.h"
#include "platform/Text.h"
#include "tests/support/Support.h"

namespace vlt::test
{

class ApplicationFolder
{
public:
    ApplicationFolder() { SetRegString(HKEY_LOCAL_MACHINE, kKey, TEXT("Application Path"), m_folder.PathW().c_str()); }
    ~ApplicationFolder() { DeleteRegValue(HKEY_LOCAL_MACHINE, kKey, TEXT("Application Path")); }

    std::string Path(const std::string& name = {}) const { return ToNarrow(m_folder.PathW(name)); }
    std::filesystem::path HostPath(const std::string& name = {}) const { return m_folder.HostPath(name); }
    void Write(const std::string& name, const std::string& bytes) const { WriteBytes(HostPath(name), bytes); }
    std::string Read(const std::string& name) const { return ReadBytes(HostPath(name)); }
    bool Has(const std::string& name) const { return std::filesystem::exists(HostPath(name)); }

private:
    static constexpr const WCHAR* kKey = TEXT("Software\\Veltrano\\Ardentis");
    TempFolder m_folder;
};

} // namespace vlt::test
