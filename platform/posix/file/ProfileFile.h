// A private profile file on disk.
#pragma once

#include "platform/posix/file/ProfileText.h"
#include "platform/posix/win32/base.h"

#include <functional>
#include <string>
#include <string_view>

namespace vlt::posix
{

// The text of the file; an empty text with ERROR_FILE_NOT_FOUND or another code in the last error when
// it cannot be read.
ProfileText ReadProfile(std::u16string_view path);

// Reads, lets `edit` change the text and writes it back when edit returns true. Writers of all
// processes exclude each other by a lock on the folder; the new text takes the old one's place in one
// step, so that a writer that is killed, or that meets a full disk, leaves the old file whole.
// False with the last error set.
bool EditProfile(std::u16string_view path, const std::function<bool(ProfileText&)>& edit);

} // namespace vlt::posix
