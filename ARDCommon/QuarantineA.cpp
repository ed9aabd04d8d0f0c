#include "ARDCommon/QuarantineA.h"

#include "platform/Text.h"

#include <algorithm>

namespace
{

// A text for the length of one call; null stays null.
class Wide
{
public:
    explicit Wide(LPCSTR text) : m_given(text != nullptr), m_text(m_given ? vlt::ToWide(text) : WString()) {}
    operator LPCWSTR() const { return m_given ? m_text.c_str() : nullptr; } // NOLINT: implicit on purpose

private:
    const bool m_given;
    const WString m_text;
};

template <std::size_t N>
void Narrow(char (&to)[260], const WCHAR (&from)[N])
{
    vlt::CopyToField(to, std::string_view(vlt::ToNarrow(vlt::FieldText(from))));
}

void Convert(const QuarantineRecord& from, QuarantineRecordA& to)
{
    to = {};
    to.platform = from.platform;
    to.type = from.type;
    to.status = from.status;
    to.patternVersion = from.patternVersion;
    std::copy(std::begin(from.engineVersion), std::end(from.engineVersion), to.engineVersion);
    Narrow(to.sourceName, from.sourceName);
    Narrow(to.sourceFolder, from.sourceFolder);
    Narrow(to.quarantinedName, from.quarantinedName);
    Narrow(to.date, from.date);
    Narrow(to.threatName, from.threatName);
}

} // namespace

int CQuarantineA::QuarantineInit(LPCSTR patternPath, LPCSTR quarantineFolder)
{
    return m_store.QuarantineInitW(Wide(patternPath), Wide(quarantineFolder));
}

int CQuarantineA::QuarantineInit(HMODULE library, AsHandle handle, LPCSTR quarantineFolder)
{
    return m_store.QuarantineInitW(library, handle, Wide(quarantineFolder));
}

int CQuarantineA::RenameEncodeFile(LPCSTR encodedFile, LPCSTR sourcePath, LPCSTR threatName)
{
    return m_store.RenameEncodeFileW(Wide(encodedFile), Wide(sourcePath), Wide(threatName));
}

int CQuarantineA::_WriteQuarantineDB(std::uint32_t type, LPCSTR sourcePath, LPCSTR quarantinedName,
                                     std::uint32_t status, LPCSTR threatName)
{
    return m_store._WriteQuarantineDBW(type, Wide(sourcePath), Wide(quarantinedName), status, Wide(threatName));
}

int CQuarantineA::_ReadQuarantineDB(QuarantineRecordA* record)
{
    QuarantineRecord wide{};
    const int result = m_store._ReadQuarantineDBW(record != nullptr ? &wide : nullptr);
    if (result == 1)
        Convert(wide, *record);
    return result;
}

int CQuarantineA::GetBackupInfo(QuarantineRecordA* record)
{
    QuarantineRecord wide{};
    const int result = m_store.GetBackupInfoW(record != nullptr ? &wide : nullptr);
    if (result == 1)
        Convert(wide, *record);
    return result;
}

int CQuarantineA::UpdateQuarantineDB(LPCSTR quarantinedName, std::uint32_t status, LPCSTR threatName)
{
    return m_store.UpdateQuarantineDBW(Wide(quarantinedName), status, Wide(threatName));
}

void CQuarantineA::SelectForDeletion(LPCSTR quarantinedName)
{
    m_store.SelectForDeletion(Wide(quarantinedName));
}

int CQuarantineA::DeleteBackup(LPCSTR name)
{
    return m_store.DeleteBackupW(Wide(name));
}

int CQuarantineA::_EncodeFile(LPCSTR source, LPCSTR destination, bool encode, bool retry)
{
    return m_store._EncodeFileW(Wide(source), Wide(destination), encode, retry);
}

int CQuarantineA::RestoreFile(LPCSTR file, LPCSTR destination, bool retry)
{
    return m_store.RestoreFileW(Wide(file), Wide(destination), retry);
}

int CQuarantineA::_ScanClean(LPCSTR quarantinedName, int mode, std::uint32_t* result)
{
    return m_store._ScanCleanW(Wide(quarantinedName), mode, result);
}

int CQuarantineA::Scan(LPCSTR quarantinedName, int mode, std::uint32_t* result)
{
    return m_store.ScanW(Wide(quarantinedName), mode, result);
}

int CQuarantineA::Scan2(LPCSTR file)
{
    return m_store.Scan2W(Wide(file));
}
