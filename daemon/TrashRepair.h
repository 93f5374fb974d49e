#pragma once

#include "ItemRemoval.h"

#include <filesystem>
#include <string>
#include <sys/types.h>

namespace quillane::daemon
{

// Whether the caller's home trash may be given back to them: HOME/.local/share/Trash is a real
// folder (no link on the way from the home folder), the home folder is the caller's, and it
// lies on a local filesystem. The home comes from the password database, never from the caller.
// Empty when it may, else why not. Reads only; cheap enough to answer before polkit is asked.
std::string checkHomeTrash(uid_t uid, const std::filesystem::path& mountinfo);

// Gives the caller's home trash back to them, as root: the Trash folder and everything in it
// become the caller's (user and primary group), and Trash, Trash/files and Trash/info gain
// u+rwx. It works from descriptors opened from the home folder, follows no link (a link is
// given back itself, never what it names) and enters no other filesystem. A file with other
// hard links (which may lie outside the trash) and device files stay as they are, and so does
// anything with a filesystem mounted on it. Returns empty when all is given back, else the
// first thing that was not and why; the rest is given back all the same. Blocks; meant for a
// worker thread.
std::string repairHomeTrash(const Caller& caller, const std::filesystem::path& mountinfo);

} // namespace quillane::daemon
