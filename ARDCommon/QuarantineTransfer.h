// Files into and out of the quarantine store, through the scan library's encoding.
#pragma once

#include "ARDCommon/QuarantineError.h"
#include "ARDCommon/QuarantineLibrary.h"

// For one call; refers to the store's library and folder. Paths are UTF-16 of at most 259 units.
class CQuarantineTransfer
{
public:
    // `folder`, without a backslash at its end, is where the scratch files are.
    CQuarantineTransfer(const QuarantineLibrary& library, const WString& folder) : m_library(library), m_folder(folder)
    {
    }

    // Encodes, or copies, the source to the destination, deletes the source and gives the destination its
    // attributes. With retry a second time from a copy in the store's folder, then always encoding.
    bool EncodeAndMove(const WString& source, const WString& destination, bool encode, bool retry);

    // Restores an encoded file to the destination, or, when that is null, to the place it came from.
    // A destination that the file system encrypts is never written directly. With retry a second time
    // through a scratch file in the store's folder.
    bool Restore(const WString& file, LPCWSTR destination, bool retry);

    // Why the last operation failed, when the system or the library did not say no themselves.
    QuarantineError Error() const { return m_error; }

private:
    bool Convey(const WString& source, const WString& destination, bool encode);
    bool EncodeThroughCopy(const WString& source, const WString& destination, DWORD attributes);
    bool RestoreDirectly(const WString& file, const WString& target, ASRestoreFileW_t restore);
    bool RestoreThroughScratch(const WString& file, const WString& target);

    const QuarantineLibrary& m_library;
    const WString& m_folder;
    QuarantineError m_error = QuarantineError::None;
};
