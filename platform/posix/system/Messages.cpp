// The texts of the error codes that the subset hands out.
#include "platform/posix/win32/system.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace
{

struct Message {
    DWORD code;
    std::string_view text;
};

constexpr std::array Messages = {
    Message{ERROR_SUCCESS, "The operation completed successfully."},
    Message{ERROR_INVALID_FUNCTION, "The function is not valid here."},
    Message{ERROR_FILE_NOT_FOUND, "The file was not found."},
    Message{ERROR_PATH_NOT_FOUND, "The path was not found."},
    Message{ERROR_TOO_MANY_OPEN_FILES, "Too many files are open."},
    Message{ERROR_ACCESS_DENIED, "Access is denied."},
    Message{ERROR_INVALID_HANDLE, "The handle is not valid."},
    Message{ERROR_NOT_ENOUGH_MEMORY, "There is not enough memory."},
    Message{ERROR_INVALID_ACCESS, "The access code is not valid."},
    Message{ERROR_INVALID_DATA, "The data is not valid."},
    Message{ERROR_OUTOFMEMORY, "There is no memory left for this operation."},
    Message{ERROR_INVALID_DRIVE, "The drive was not found."},
    Message{ERROR_CURRENT_DIRECTORY, "The current folder cannot be removed."},
    Message{ERROR_NOT_SAME_DEVICE, "The file cannot be moved to another drive."},
    Message{ERROR_NO_MORE_FILES, "There are no more files."},
    Message{ERROR_WRITE_PROTECT, "The medium is write-protected."},
    Message{ERROR_BAD_LENGTH, "The length of a command or record is not right."},
    Message{ERROR_WRITE_FAULT, "The device cannot be written to."},
    Message{ERROR_READ_FAULT, "The device cannot be read from."},
    Message{ERROR_GEN_FAILURE, "The device does not work."},
    Message{ERROR_SHARING_VIOLATION, "The file is in use by another process."},
    Message{ERROR_HANDLE_EOF, "The end of the file was reached."},
    Message{ERROR_NOT_SUPPORTED, "The request is not supported."},
    Message{ERROR_FILE_EXISTS, "The file exists."},
    Message{ERROR_INVALID_PARAMETER, "A parameter is not right."},
    Message{ERROR_DISK_FULL, "There is not enough room on the disk."},
    Message{ERROR_INSUFFICIENT_BUFFER, "The buffer is too small."},
    Message{ERROR_INVALID_NAME, "The name is not valid."},
    Message{ERROR_MOD_NOT_FOUND, "The library was not found."},
    Message{ERROR_PROC_NOT_FOUND, "The function was not found in the library."},
    Message{ERROR_NEGATIVE_SEEK, "The file position would lie before the file's beginning."},
    Message{ERROR_DIR_NOT_EMPTY, "The folder is not empty."},
    Message{ERROR_BUSY, "The resource is in use."},
    Message{ERROR_ALREADY_EXISTS, "The object exists already."},
    Message{ERROR_BAD_EXE_FORMAT, "The file is not a program or library of this system."},
    Message{ERROR_FILENAME_EXCED_RANGE, "The file name is too long."},
    Message{ERROR_MORE_DATA, "There is more data."},
    Message{ERROR_NO_MORE_ITEMS, "There are no more items."},
    Message{ERROR_DIRECTORY, "The name is not that of a folder."},
    Message{ERROR_TOO_MANY_POSTS, "The semaphore would go above its maximum."},
    Message{ERROR_MR_MID_NOT_FOUND, "There is no text for this code."},
    Message{ERROR_INVALID_ADDRESS, "The address is not valid."},
    Message{ERROR_NOACCESS, "The memory may not be accessed."},
    Message{ERROR_INVALID_FLAGS, "The flags are not valid."},
    Message{ERROR_BADDB, "The registry is damaged."},
    Message{ERROR_BADKEY, "The registry key is not valid."},
    Message{ERROR_KEY_DELETED, "The registry key was deleted."},
    Message{ERROR_INVALID_SERVICE_CONTROL, "The control is not valid for this service."},
    Message{ERROR_SERVICE_REQUEST_TIMEOUT, "The service did not answer in time."},
    Message{ERROR_SERVICE_ALREADY_RUNNING, "The service is running already."},
    Message{ERROR_SERVICE_DISABLED, "The service is disabled."},
    Message{ERROR_SERVICE_DOES_NOT_EXIST, "The service is not installed."},
    Message{ERROR_SERVICE_CANNOT_ACCEPT_CTRL, "The service cannot take a control now."},
    Message{ERROR_SERVICE_NOT_ACTIVE, "The service is not running."},
    Message{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, "The program was not started by the service manager."},
    Message{ERROR_EXCEPTION_IN_SERVICE, "An exception ended the service."},
    Message{ERROR_SERVICE_SPECIFIC_ERROR, "The service gave an error code of its own."},
    Message{ERROR_PROCESS_ABORTED, "The process ended unexpectedly."},
    Message{ERROR_SERVICE_MARKED_FOR_DELETE, "The service is to be deleted."},
    Message{ERROR_SERVICE_EXISTS, "The service is installed already."},
    Message{ERROR_NO_UNICODE_TRANSLATION, "A character has no counterpart in the other code page."},
    Message{ERROR_DLL_INIT_FAILED, "The library's initialisation failed."},
    Message{ERROR_IO_DEVICE, "The device reported an error."},
    Message{ERROR_RESOURCE_DATA_NOT_FOUND, "The file holds no resources."},
    Message{ERROR_RESOURCE_TYPE_NOT_FOUND, "The file holds no resource of this type."},
    Message{ERROR_RESOURCE_NAME_NOT_FOUND, "The resource was not found."},
};

} // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD messageId, DWORD /*languageId*/, LPWSTR buffer, DWORD size,
                     void* arguments)
{
    constexpr DWORD known = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if ((flags & ~known) != 0 || (flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0 || arguments || !buffer) {
        SetLastError(buffer ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto found =
        std::find_if(Messages.begin(), Messages.end(), [&](const Message& each) { return each.code == messageId; });
    if (found == Messages.end()) {
        SetLastError(ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    std::u16string text(found->text.begin(), found->text.end());
    text += TEXT("\r\n");

    LPWSTR target = buffer;
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
        target = static_cast<LPWSTR>(LocalAlloc(LPTR, (std::max<SIZE_T>(text.size() + 1, size)) * sizeof(WCHAR)));
        if (!target)
            return 0;
        *reinterpret_cast<LPWSTR*>(buffer) = target;
    } else if (size <= text.size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    text.copy(target, text.size());
    target[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}
