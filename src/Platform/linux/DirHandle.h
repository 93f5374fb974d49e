#pragma once

#include <dirent.h>
#include <memory>

namespace quillane
{

// A directory stream, closed (with its descriptor) when it goes.
struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// Whether a name read from a folder is its "." or ".." entry.
inline bool isDotOrDotDot(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace quillane
