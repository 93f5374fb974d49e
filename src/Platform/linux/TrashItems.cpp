#include "Platform/TrashItems.h"

#include "DirHandle.h"
#include "Platform/SafeRemoval.h"

#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane
{

namespace
{

constexpr std::string_view recordSuffix = ".trashinfo";
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool exists(int folder, const std::string& name)
{
    struct stat entry {
    };
    return fstatat(folder, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

std::string percentDecoded(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto hex = [&](std::size_t at) {
            return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at]));
        };
        if (text[i] == '%' && hex(i + 1) && hex(i + 2)) {
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::optional<std::string> readAll(int folder, const char* name)
{
    const UniqueFd file = UniqueFd::adopt(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return std::nullopt;
    std::string text;
    char buffer[8192];
    ssize_t length;
    while ((length = read(file.get(), buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(length));
    return length < 0 ? std::nullopt : std::optional(text);
}

// Keeps the directorysizes lines ("SIZE MTIME NAME", the name percent-encoded) whose folder is
// still in files/.
std::string forgetGoneSizes(int trashFd, int filesFd)
{
    const auto text = readAll(trashFd, "directorysizes");
    if (!text)
        return errno == ENOENT ? std::string() : describeErrno("directorysizes", errno);
    std::string kept;
    bool changed = false;
    for (std::size_t start = 0; start < text->size();) {
        const auto end = std::min(text->find('\n', start), text->size());
        const std::string_view line = std::string_view(*text).substr(start, end - start);
        start = end + 1;
        const auto nameStart = line.find(' ', line.find(' ') + 1);
        if (nameStart != std::string_view::npos &&
            !exists(filesFd, percentDecoded(line.substr(nameStart + 1)))) {
            changed = true;
            continue;
        }
        if (!line.empty())
            (kept += line) += '\n';
    }
    if (!changed)
        return {};
    constexpr const char* aside = "directorysizes.quillane";
    const UniqueFd file = UniqueFd::adopt(
        openat(trashFd, aside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file)
        return describeErrno("directorysizes", errno);
    if (write(file.get(), kept.data(), kept.size()) != static_cast<ssize_t>(kept.size()) ||
        renameat(trashFd, aside, trashFd, "directorysizes") != 0) {
        const int error = errno;
        unlinkat(trashFd, aside, 0);
        return describeErrno("directorysizes", error);
    }
    return {};
}

} // namespace

TrashedItemRemoval removeTrashedItem(int filesFd, int infoFd, const std::string& name)
{
    TrashedItemRemoval removal;
    removal.item = removeEntry(filesFd, name);
    if (!removal.item || infoFd < 0)
        return removal;
    const std::string record = name + std::string(recordSuffix);
    if (unlinkat(infoFd, record.c_str(), 0) != 0 && errno != ENOENT) {
        removal.recordErrorCode = errno;
        removal.recordError = describeErrno(record, errno);
    }
    return removal;
}

std::set<std::string> listRecords(int trashFd)
{
    std::set<std::string> records;
    const int infoFd = openat(trashFd, "info", folderFlags);
    if (infoFd < 0)
        return records;
    DirHandle info(fdopendir(infoFd));
    if (!info) {
        close(infoFd);
        return records;
    }
    while (const dirent* entry = readdir(info.get())) {
        const std::string_view name = entry->d_name;
        if (name.size() > recordSuffix.size() && name.ends_with(recordSuffix))
            records.emplace(name);
    }
    return records;
}

std::vector<std::string> tidyTrash(int trashFd, const std::set<std::string>& recordsBefore)
{
    std::vector<std::string> errors;
    const UniqueFd files = UniqueFd::adopt(openat(trashFd, "files", folderFlags));
    if (!files) {
        errors.push_back(describeErrno("files", errno));
        return errors;
    }
    if (const UniqueFd info = UniqueFd::adopt(openat(trashFd, "info", folderFlags))) {
        for (const std::string& record : recordsBefore) {
            const std::string item = record.substr(0, record.size() - recordSuffix.size());
            // Most records went with their items; only those still there are tried, since a
            // read-only volume refuses even the removal of what is not there.
            if (exists(files.get(), item) || !exists(info.get(), record) ||
                unlinkat(info.get(), record.c_str(), 0) == 0 || errno == ENOENT)
                continue;
            errors.push_back(describeErrno(record, errno));
            if (errno == EROFS)
                return errors; // every other record would say the same
        }
    }
    if (std::string error = forgetGoneSizes(trashFd, files.get()); !error.empty())
        errors.push_back(std::move(error));
    return errors;
}

} // namespace quillane
