#include "ARDCommon/Quarantine.h"

#include "ARDCommon/QuarantineTransfer.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlFile.h"
#include "platform/Format.h"
#include "platform/Text.h"

#include <algorithm>

namespace
{

constexpr std::uint32_t kScanLibraryVersion = 2;
constexpr std::uint32_t kOnDemand = 0;
constexpr int kNameAttempts = 32;

WStringView View(LPCWSTR text)
{
    return text != nullptr ? WStringView(text) : WStringView();
}

bool IsEmpty(LPCWSTR text)
{
    return text == nullptr || *text == 0;
}

// A file of that name is there, or is just being deleted by somebody else.
bool IsNameTaken(DWORD error)
{
    return error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS || error == ERROR_ACCESS_DENIED ||
           error == ERROR_SHARING_VIOLATION;
}

WString DateText(const SYSTEMTIME& time)
{
    return vlt::Format(TEXT("%04d/%02d/%02d %02d:%02d"), int{time.wYear}, int{time.wMonth}, int{time.wDay},
                       int{time.wHour}, int{time.wMinute});
}

// Empty for a time that the calendar cannot say.
WString LocalDateOf(std::uint32_t secondsSince1970)
{
    constexpr ULONGLONG ticksPerSecond = 10'000'000;
    constexpr ULONGLONG epoch = 116'444'736'000'000'000; // 1970 in ticks since 1601
    const ULONGLONG ticks = secondsSince1970 * ticksPerSecond + epoch;
    const FILETIME utc{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    FILETIME local{};
    SYSTEMTIME time{};
    if (!FileTimeToLocalFileTime(&utc, &local) || !FileTimeToSystemTime(&local, &time))
        return {};
    return DateText(time);
}

} // namespace

CQuarantine::~CQuarantine()
{
    QuarantineClose();
}

int CQuarantine::Fail(QuarantineError error)
{
    m_lastError = error;
    return 0;
}

int CQuarantine::Report(QuarantineError error)
{
    return error == QuarantineError::None ? 1 : Fail(error);
}

int CQuarantine::QuarantineInitW(LPCWSTR patternPath, LPCWSTR quarantineFolder)
{
    VLT_TRACE(50, "(ENTER) CQuarantine::QuarantineInitW( pattern path=%s, quarantine folder=%s)",
              vlt::ToNarrow(View(patternPath)), vlt::ToNarrow(View(quarantineFolder)));
    if (!SetFolder(quarantineFolder) || !LoadScanLibrary(patternPath))
        return 0;
    VLT_TRACE(50, "(EXIT) CQuarantine::QuarantineInitW()");
    return 1;
}

int CQuarantine::QuarantineInitW(HMODULE library, AsHandle handle, LPCWSTR quarantineFolder)
{
    if (!SetFolder(quarantineFolder))
        return 0;
    m_library.Set(library, handle);
    return 1;
}

int CQuarantine::SetFolder(LPCWSTR quarantineFolder)
{
    WString folder(View(quarantineFolder).substr(0, MAX_PATH - 1));
    if (folder.size() < 2)
        return Fail(QuarantineError::InvalidParameter);
    CreateDirectoryW(folder.c_str(), nullptr);
    if (folder.back() == TEXT('\\'))
        folder.pop_back();
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExW(&version))
        return Fail(QuarantineError::Version);
    m_platform = version.dwPlatformId;
    m_folder = folder;
    m_db.emplace(m_folder);
    m_db->Repair();
    DeleteDecodedCopies();
    return 1;
}

// Of a program that was killed at work on a kept file, which is still there itself.
void CQuarantine::DeleteDecodedCopies() const
{
    VlFile::Delete(m_folder + TEXT("\\") + kQuarantineCopyName);
    const WString folder = m_folder + TEXT("\\") + kQuarantineTempFolder;
    VlFile::DeleteMatching(folder, TEXT("*"));
    RemoveDirectoryW(folder.c_str());
}

int CQuarantine::LoadScanLibrary(LPCWSTR patternPath)
{
    if (!m_ardScan.Load(TEXT("ArdScan.dll"))) {
        VLT_TRACE(20, "Failed: LoadLibraryA( ArdScan.dll)");
        return Fail(QuarantineError::NoLibrary);
    }
    if (!m_ardScan.IsInit()) {
        VLT_TRACE(20, "Failed: CArdScanLib::Init()");
        return Fail(QuarantineError::NoLibrary);
    }
    const CLazyExport<ASInitScanW_t> initScan("ASInitScanW");
    m_library.Set(m_ardScan.Handle(), nullptr);
    const auto init = m_library.Export(initScan);
    if (init == nullptr) {
        m_library.Set(nullptr, nullptr);
        return Fail(QuarantineError::MissingExport);
    }
    AsInitRecord record{};
    record.processId = GetCurrentProcessId();
    record.appFolder = patternPath;
    record.patternFolder = patternPath;
    record.version = AS_INIT_VERSION;
    // A library without patterns gives no handle. The store can still put files away.
    m_library.Set(m_ardScan.Handle(), init(kScanLibraryVersion, &record, kOnDemand));
    m_ownsScanHandle = m_library.handle != nullptr;
    return 1;
}

void CQuarantine::QuarantineClose()
{
    CloseEnumerations();
    if (m_ownsScanHandle) {
        if (const auto deInit = vlt::ProcAddress<ASDeInitScan_t>(m_library.m_hModule, "ASDeInitScan"))
            deInit(m_library.handle);
    }
    m_ownsScanHandle = false;
    m_library.Set(nullptr, nullptr);
    if (m_ardScan.Handle() != nullptr)
        m_ardScan.Free();
    m_selected.clear();
    m_db.reset();
}

int CQuarantine::RenameEncodeFileW(LPCWSTR encodedFile, LPCWSTR sourcePath, LPCWSTR threatName)
{
    VLT_TRACE(50, "(ENTER) CQuarantine::RenameEncodeFileW()");
    m_lastError = QuarantineError::None;
    if (m_library.m_hModule == nullptr)
        return Fail(QuarantineError::NoLibrary);
    if (IsEmpty(encodedFile) || IsEmpty(threatName))
        return Fail(QuarantineError::InvalidParameter);
    WString name;
    if (!MoveIntoStore(encodedFile, name))
        return 0;
    const std::uint32_t type = m_platform == VER_PLATFORM_WIN32_NT ? kQuarantinedType : kQuarantinedTypeOldSystem;
    if (!_WriteQuarantineDBW(type, sourcePath, name.c_str(), kQuarantinedStatus, threatName))
        return 0;
    VLT_TRACE(50, "(EXIT) CQuarantine::RenameEncodeFileW()");
    return 1;
}

// The name is free only until the file that made it so is deleted: another thread, or another program,
// may be given the same one in between.
bool CQuarantine::MoveIntoStore(const WString& encodedFile, WString& quarantinedName)
{
    const WString file = VlFile::IsAbsolute(encodedFile) ? encodedFile : m_folder + TEXT("\\") + encodedFile;
    QuarantineError error = QuarantineError::None;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        WCHAR unique[MAX_PATH] = {};
        if (GetTempFileNameW(m_folder.c_str(), TEXT(""), 0, unique) == 0) {
            error = QuarantineError::NoUniqueName;
        } else {
            error = QuarantineError::Move;
            DeleteFileW(unique);
            if (MoveFileW(file.c_str(), unique)) {
                quarantinedName = unique;
                return true;
            }
        }
        if (!IsNameTaken(GetLastError()))
            break;
    }
    Fail(error);
    return false;
}

int CQuarantine::_WriteQuarantineDBW(std::uint32_t type, LPCWSTR sourcePath, LPCWSTR quarantinedName,
                                     std::uint32_t status, LPCWSTR threatName)
{
    const auto fill = [&](QuarantineRecord& record) {
        return _CreateQuarantineInfoW(record, type, sourcePath, quarantinedName, status, threatName);
    };
    QuarantineRecord none{};
    return Report(m_db ? m_db->Append(fill) : fill(none));
}

QuarantineError CQuarantine::_CreateQuarantineInfoW(QuarantineRecord& record, std::uint32_t type, LPCWSTR sourcePath,
                                                    LPCWSTR quarantinedName, std::uint32_t status, LPCWSTR threatName)
{
    if (!m_db || m_library.m_hModule == nullptr) {
        VLT_TRACE(20, "CArdScanLib is not initialized.");
        return QuarantineError::NoLibrary;
    }
    const auto getEngineInfo = m_library.Export(m_library.m_pfASGetEngineInfo);
    if (getEngineInfo == nullptr)
        return QuarantineError::MissingExport;
    record.platform = m_platform;
    record.type = type;
    record.status = status;

    const auto getPattern = m_library.m_pfASGetPatternInformation.In(m_library.m_hModule);
    AsPatternInformation pattern{};
    if (getPattern != nullptr && getPattern(m_library.handle, &pattern) == 1)
        record.patternVersion = pattern.version;
    alignas(AsEngineInfo) std::uint8_t engine[AS_ENGINE_INFO_BUFFER] = {};
    getEngineInfo(m_library.handle, reinterpret_cast<AsEngineInfo*>(engine));
    std::copy_n(engine, sizeof(record.engineVersion), record.engineVersion);

    const WStringView source = View(sourcePath);
    const std::size_t name = VlFile::NamePosition(source);
    vlt::CopyToField(record.sourceName, source.substr(name));
    vlt::CopyToField(record.sourceFolder, source.substr(0, name));
    const WStringView quarantined = View(quarantinedName);
    vlt::CopyToField(record.quarantinedName, quarantined.substr(VlFile::NamePosition(quarantined)));
    SYSTEMTIME now{};
    GetLocalTime(&now);
    vlt::CopyToField(record.date, WStringView(DateText(now)));
    vlt::CopyToField(record.threatName, View(threatName));
    return QuarantineError::None;
}

int CQuarantine::_ReadQuarantineDBW(QuarantineRecord* record)
{
    if (record == nullptr || !m_db)
        return Fail(QuarantineError::InvalidParameter);
    QuarantineError error = QuarantineError::None;
    if (m_db->Read(*record, error))
        return 1;
    return Fail(error);
}

int CQuarantine::GetBackupInfoW(QuarantineRecord* record)
{
    if (record == nullptr)
        return Fail(QuarantineError::InvalidParameter);
    const auto getInfo = m_library.Export(m_library.m_pfASGetBackupFileInfoW);
    if (getInfo == nullptr)
        return Fail(QuarantineError::MissingExport);
    const WString folder = m_folder + TEXT("\\") + kQuarantineBackupFolder + TEXT("\\");
    WIN32_FIND_DATAW found{};
    const auto next = [&] {
        if (m_backups)
            return FindNextFileW(m_backups.Get(), &found) != FALSE;
        m_backups.Reset(FindFirstFileW((folder + kQuarantineBackupPattern).c_str(), &found));
        return static_cast<bool>(m_backups);
    };
    while (next()) {
        AsBackupInfoW info{};
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
            getInfo(m_library.handle, (folder + found.cFileName).c_str(), &info) != 1)
            continue;
        *record = {};
        const WStringView source = vlt::FieldText(info.sourcePath);
        const WStringView backup = vlt::FieldText(info.backupPath);
        vlt::CopyToField(record->sourceName, source.substr(VlFile::NamePosition(source)));
        vlt::CopyToField(record->sourceFolder, source.substr(0, VlFile::NamePosition(source)));
        vlt::CopyToField(record->quarantinedName, backup.substr(VlFile::NamePosition(backup)));
        record->type = info.encoded != 0 ? 3 : 2;
        record->status = 1;
        vlt::CopyToField(record->date, WStringView(LocalDateOf(info.time)));
        return 1;
    }
    return Fail(QuarantineError::None);
}

void CQuarantine::CloseEnumerations()
{
    if (m_db)
        m_db->CloseReader();
    m_backups.Reset();
}

int CQuarantine::UpdateQuarantineDBW(LPCWSTR quarantinedName, std::uint32_t status, LPCWSTR threatName)
{
    if (quarantinedName == nullptr || !m_db)
        return Fail(QuarantineError::InvalidParameter);
    return Report(m_db->Rewrite([&](QuarantineRecord& record) {
        if (vlt::FieldText(record.quarantinedName) != View(quarantinedName))
            return true;
        record.status = status;
        if (threatName != nullptr && record.threatName[0] != 0)
            vlt::CopyToField(record.threatName, View(threatName));
        return true;
    }));
}

void CQuarantine::SelectForDeletion(LPCWSTR quarantinedName)
{
    m_selected.emplace_back(View(quarantinedName));
}

int CQuarantine::DeleteQuarantinedW()
{
    if (!m_db)
        return Fail(QuarantineError::InvalidParameter);
    std::sort(m_selected.begin(), m_selected.end());
    const QuarantineError error = m_db->Rewrite([&](QuarantineRecord& record) {
        const WString name(vlt::FieldText(record.quarantinedName));
        if (!std::binary_search(m_selected.begin(), m_selected.end(), name))
            return true;
        if (VlFile::IsPlainName(name)) {
            const WString file = m_folder + TEXT("\\") + name;
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            VLT_TRACE(40, "  delete [%ls]", name);
            DeleteFileW(file.c_str());
        }
        return false;
    });
    m_selected.clear();
    return Report(error);
}

int CQuarantine::DeleteBackupW(LPCWSTR name)
{
    if (!m_db || !VlFile::IsPlainName(View(name)))
        return Fail(QuarantineError::InvalidParameter);
    return DeleteFileW((m_folder + TEXT("\\backup\\") + name).c_str()) ? 1 : 0;
}

int CQuarantine::ClearAllW()
{
    if (!m_db)
        return Fail(QuarantineError::InvalidParameter);
    const bool files = VlFile::DeleteMatching(m_folder, kQuarantineFilePattern);
    const bool backups =
        VlFile::DeleteMatching(m_folder + TEXT("\\") + kQuarantineBackupFolder, kQuarantineBackupPattern);
    if (!files && !backups)
        return 0;
    return Report(m_db->Truncate());
}

int CQuarantine::_EncodeFileW(LPCWSTR source, LPCWSTR destination, bool encode, bool retry)
{
    if (source == nullptr || destination == nullptr)
        return Fail(QuarantineError::InvalidParameter);
    CQuarantineTransfer transfer(m_library, m_folder);
    return transfer.EncodeAndMove(source, destination, encode, retry) ? 1 : Fail(transfer.Error());
}

int CQuarantine::RestoreFileW(LPCWSTR file, LPCWSTR destination, bool retry)
{
    if (file == nullptr)
        return Fail(QuarantineError::InvalidParameter);
    CQuarantineTransfer transfer(m_library, m_folder);
    return transfer.Restore(file, destination, retry) ? 1 : Fail(transfer.Error());
}

bool CQuarantine::FindRecord(LPCWSTR quarantinedName, QuarantineRecord& record)
{
    const auto matches = [&] {
        const WString name(vlt::FieldText(record.quarantinedName));
        return VlFile::IsPlainName(name) && lstrcmpiW(name.c_str(), quarantinedName) == 0;
    };
    CloseEnumerations();
    bool found = false;
    while (!found && _ReadQuarantineDBW(&record))
        found = matches();
    while (!found && GetBackupInfoW(&record))
        found = matches();
    CloseEnumerations();
    return found;
}

bool CQuarantine::ExamineKept(LPCWSTR quarantinedName, int mode, const std::uint32_t* result, LPCWSTR backupFolder,
                              Examination& examination)
{
    m_lastError = QuarantineError::None;
    if (m_library.m_hModule == nullptr) {
        Fail(QuarantineError::NoLibrary);
        return false;
    }
    if (IsEmpty(quarantinedName) || result == nullptr) {
        Fail(QuarantineError::InvalidParameter);
        return false;
    }
    QuarantineRecord& record = examination.record;
    if (!FindRecord(quarantinedName, record))
        return false;
    examination.name = vlt::FieldText(record.quarantinedName);
    const bool backup = record.type < kFirstQuarantinedType;
    examination.file = m_folder + TEXT("\\") + (backup ? WString(backupFolder) + TEXT("\\") : WString());
    examination.file += examination.name;

    examination.folder = m_folder + TEXT("\\") + kQuarantineTempFolder + TEXT("\\");
    CreateDirectoryW(examination.folder.c_str(), nullptr);
    WCHAR unique[MAX_PATH] = {};
    if (GetTempFileNameW(examination.folder.c_str(), TEXT(""), 0, unique) != 0) {
        examination.copy = unique;
    } else {
        const WString name(vlt::FieldText(record.sourceName));
        examination.copy = examination.folder + (VlFile::IsPlainName(name) ? name : examination.name);
    }
    if (!RestoreFileW(examination.file.c_str(), examination.copy.c_str(), true)) {
        EndExamination(examination);
        return false;
    }
    examination.done = Examine(examination.copy, mode, examination.verdict);
    return true;
}

void CQuarantine::EndExamination(const Examination& examination)
{
    VlFile::Delete(examination.copy);
    SetFileAttributesW(examination.folder.c_str(), FILE_ATTRIBUTE_NORMAL);
    RemoveDirectoryW(examination.folder.c_str());
}

bool CQuarantine::Examine(const WString& workingCopy, int mode, QuarantineVerdict& verdict)
{
    CQuarantineScan scan(m_library, m_folder, m_results);
    const bool done = mode == 1 ? scan.ScanFile(workingCopy, verdict) : scan.CleanFile(workingCopy, verdict);
    if (!done)
        Fail(scan.Error());
    return done;
}

int CQuarantine::_ScanCleanW(LPCWSTR quarantinedName, int mode, std::uint32_t* result)
{
    Examination examination;
    if (!ExamineKept(quarantinedName, mode, result, TEXT("backup"), examination))
        return 0;
    const QuarantineVerdict& verdict = examination.verdict;
    if (mode == 1)
        VLT_TRACE(40, "    _ScanCleanW: result[%d] addStatus[%d]", verdict.scanResult, verdict.addStatus);
    const QuarantineError error = m_lastError;
    _EncodeFileW(examination.copy.c_str(), examination.file.c_str(), true, true);
    EndExamination(examination); // a copy that could not be encoded goes with the folder
    if (!examination.done)
        return Fail(error);
    *result = verdict.code;
    UpdateStatus(examination.name, static_cast<std::uint32_t>(verdict.scanResult), verdict);
    return 1;
}

int CQuarantine::ScanW(LPCWSTR quarantinedName, int mode, std::uint32_t* result)
{
    Examination examination;
    if (!ExamineKept(quarantinedName, mode, result, TEXT("Backup"), examination))
        return 0;
    EndExamination(examination);
    if (!examination.done)
        return 0;
    *result = examination.verdict.code;
    UpdateStatus(examination.name, *result, examination.verdict);
    return static_cast<int>(*result);
}

// Backup copies have no record: what was found stands, there is nothing to update.
void CQuarantine::UpdateStatus(const WString& name, std::uint32_t status, const QuarantineVerdict& verdict)
{
    UpdateQuarantineDBW(name.c_str(), status, verdict.threatName.empty() ? nullptr : verdict.threatName.c_str());
}

int CQuarantine::Scan2W(LPCWSTR file)
{
    VLT_TRACE(50, "[Enter CQuarantine::Scan2W()]");
    m_lastError = QuarantineError::None;
    if (m_library.m_hModule == nullptr)
        return Fail(QuarantineError::NoLibrary);
    if (IsEmpty(file))
        return Fail(QuarantineError::InvalidParameter);
    VLT_TRACE(40, "File to be scanned:%s", vlt::ToNarrow(file));
    QuarantineVerdict verdict;
    return Examine(file, 1, verdict) ? static_cast<int>(verdict.code) : 0;
}
