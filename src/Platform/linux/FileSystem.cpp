#include "Platform/FileSystem.h"

#include "DirHandle.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane
{

std::string describeErrno(const std::string& what, int error)
{
    return what + ": " + std::strerror(error);
}

Result<std::vector<std::string>> listDirectory(const std::filesystem::path& folder)
{
    DirHandle dir(opendir(folder.c_str()));
    if (!dir) {
        const int error = errno;
        return Result<std::vector<std::string>>::failure(describeErrno(folder.native(), error),
                                                         error);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(dir.get())) {
        if (!isDotOrDotDot(entry->d_name))
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    if (errno != 0)
        return Result<std::vector<std::string>>::failure(describeErrno(folder.native(), errno));
    return Result<std::vector<std::string>>::success(std::move(names));
}

Result<bool> readFirstEntry(const std::filesystem::path& folder)
{
    DirHandle dir(opendir(folder.c_str()));
    if (!dir) {
        const int error = errno;
        return Result<bool>::failure(describeErrno(folder.native(), error), error);
    }
    errno = 0;
    if (!readdir(dir.get()) && errno != 0) {
        const int error = errno;
        return Result<bool>::failure(describeErrno(folder.native(), error), error);
    }
    return Result<bool>::success(true);
}

bool fileExists(const std::filesystem::path& path)
{
    struct stat info {
    };
    return lstat(path.c_str(), &info) == 0;
}

bool isMountPoint(const std::filesystem::path& path)
{
    struct stat self {
    }, parent{};
    if (stat(path.c_str(), &self) != 0 || !S_ISDIR(self.st_mode))
        return false;
    if (stat((path / "..").c_str(), &parent) != 0)
        return false;
    // The root folder is its own parent; any other top directory sits on another device than
    // its parent (or, for a bind mount of the same device, is the same inode as its parent's).
    return self.st_dev != parent.st_dev || self.st_ino == parent.st_ino;
}

std::string lastPathComponent(const std::filesystem::path& path)
{
    const std::string& text = path.native();
    const auto end = text.find_last_not_of('/');
    if (end == std::string::npos)
        return text.empty() ? std::string() : std::string("/");
    const auto start = text.rfind('/', end);
    return text.substr(start == std::string::npos ? 0 : start + 1,
                       end - (start == std::string::npos ? 0 : start + 1) + 1);
}

std::filesystem::path withoutTrailingSlash(const std::filesystem::path& path)
{
    std::string text = path.native();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::string printable(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == '\n') {
            text += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            static constexpr char hex[] = "0123456789abcdef";
            ((text += "\\x") += hex[byte >> 4]) += hex[byte & 0xf];
        } else {
            text += c;
        }
    }
    return text;
}

bool pathContains(const std::filesystem::path& path, std::string_view text)
{
    return path.native().find(text) != std::string::npos;
}

} // namespace quillane
