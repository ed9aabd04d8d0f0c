#include "ARDCommon/QuarantineTransfer.h"

#include "ARDCommon/QuarantineDb.h"
#include "ARDCommon/QuarantineLock.h"
#include "ARDCommon/VlFile.h"
#include "platform/Unique.h"

namespace
{

void SetAttributes(const WString& file, DWORD attributes)
{
    if (attributes != INVALID_FILE_ATTRIBUTES)
        SetFileAttributesW(file.c_str(), attributes);
}

void SetNormal(const WString& file)
{
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// A system without encryption of single files has neither the library nor the function.
bool IsEncrypted(const WString& file)
{
    using FileEncryptionStatusW_t = BOOL(WINAPI*)(LPCWSTR, LPDWORD);
    constexpr DWORD encrypted = 1;
    const vlt::LibraryHandle library(LoadLibraryW(TEXT("advapi32.dll")));
    const auto query = vlt::ProcAddress<FileEncryptionStatusW_t>(library.Get(), "FileEncryptionStatusW");
    DWORD status = 0;
    return query != nullptr && query(file.c_str(), &status) && status == encrypted;
}

} // namespace

bool CQuarantineTransfer::EncodeAndMove(const WString& source, const WString& destination, bool encode, bool retry)
{
    const DWORD sourceAttributes = GetFileAttributesW(source.c_str());
    if (sourceAttributes == INVALID_FILE_ATTRIBUTES) {
        m_error = QuarantineError::Attributes;
        return false;
    }
    const DWORD destinationAttributes = GetFileAttributesW(destination.c_str());
    SetNormal(source);
    SetNormal(destination);
    if (Convey(source, destination, encode) && DeleteFileW(source.c_str())) {
        SetAttributes(destination, sourceAttributes);
        return true;
    }
    if (retry && EncodeThroughCopy(source, destination, sourceAttributes))
        return true;
    SetAttributes(source, sourceAttributes);
    SetAttributes(destination, destinationAttributes);
    return false;
}

bool CQuarantineTransfer::Convey(const WString& source, const WString& destination, bool encode)
{
    if (!encode)
        return CopyFileW(source.c_str(), destination.c_str(), FALSE) != FALSE;
    const auto encodeFile = m_library.Export(m_library.m_pfASEncodeFileW);
    if (encodeFile == nullptr) {
        m_error = QuarantineError::MissingExport;
        return false;
    }
    return encodeFile(m_library.handle, source.c_str(), destination.c_str()) == 1;
}

bool CQuarantineTransfer::EncodeThroughCopy(const WString& source, const WString& destination, DWORD attributes)
{
    const WString copy = m_folder + TEXT("\\") + kQuarantineCopyName;
    if (!CopyFileW(source.c_str(), copy.c_str(), FALSE))
        return false;
    const bool encoded = EncodeAndMove(copy, destination, true, false);
    VlFile::Delete(copy);
    if (!encoded)
        return false;
    VlFile::Delete(source);
    SetAttributes(destination, attributes);
    return true;
}

bool CQuarantineTransfer::Restore(const WString& file, LPCWSTR destination, bool retry)
{
    const auto getInfo = m_library.Export(m_library.m_pfASGetBackupFileInfoW);
    const auto restore = m_library.Export(m_library.m_pfASRestoreFileW);
    if (getInfo == nullptr || restore == nullptr) {
        m_error = QuarantineError::MissingExport;
        return false;
    }
    AsBackupInfoW info{};
    if (getInfo(m_library.handle, file.c_str(), &info) != 1) {
        m_error = QuarantineError::NoBackupInfo;
        return false;
    }
    info.sourcePath[MAX_PATH - 1] = 0;
    const WString target = destination != nullptr ? destination : info.sourcePath;
    const DWORD targetAttributes = GetFileAttributesW(target.c_str());
    if (RestoreDirectly(file, target, restore))
        return true;
    if (destination != nullptr)
        SetAttributes(target, targetAttributes);
    else
        SetNormal(target); // until the copy below is made: over a read-only file it would fail
    if (retry && RestoreThroughScratch(file, target))
        return true;
    SetAttributes(target, targetAttributes);
    return false;
}

bool CQuarantineTransfer::RestoreDirectly(const WString& file, const WString& target, ASRestoreFileW_t restore)
{
    const DWORD fileAttributes = GetFileAttributesW(file.c_str());
    if (IsEncrypted(target))
        return false;
    SetNormal(target);
    if (restore(m_library.handle, file.c_str(), target.c_str()) != 1)
        return false;
    SetAttributes(target, fileAttributes);
    return true;
}

bool CQuarantineTransfer::RestoreThroughScratch(const WString& file, const WString& target)
{
    // The scratch file is that of the record file's rewrite: one that was cut short may hold records that
    // are nowhere else, and none may be at work meanwhile.
    const WString scratch = m_folder + TEXT("\\") + kQuarantineScratchName;
    if (VlFile::Exists(scratch)) {
        CQuarantineDb(m_folder).Repair();
        if (VlFile::Exists(scratch))
            return false;
    }
    CQuarantineLock lock;
    if (!lock.Lock()) {
        m_error = QuarantineError::Semaphore;
        return false;
    }
    const bool copied =
        Restore(file, scratch.c_str(), false) && CopyFileW(scratch.c_str(), target.c_str(), FALSE) != FALSE;
    VlFile::Delete(scratch);
    return copied;
}
