// The two things that the tool asks of its host and Windows has no common function for.
#pragma once

namespace vlt::ctl
{

// Somebody looks at standard error.
bool ErrorsAreSeen();

// Files and folders that this program makes from now on are not for other users. On Windows they have
// the rights of their folder.
void KeepNewFilesPrivate();

} // namespace vlt::ctl
