#include "Platform/TrashItems.h"

#include "DirHandle.h"
#include "Platform/SafeRemoval.h"

#include <QString>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane
{

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

std::string percentEncoded(std::string_view name)
{
    std::string out;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += c;
        } else {
            constexpr std::string_view digits = "0123456789ABCDEF";
            ((out += '%') += digits[byte >> 4]) += digits[byte & 15];
        }
    }
    return out;
}

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

// O_NONBLOCK, so that a fifo in the place of a file never holds up the reader.
std::optional<std::string> readAll(int folder, const char* name)
{
    const UniqueFd file =
        UniqueFd::adopt(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return std::nullopt;
    std::string text;
    char buffer[8192];
    ssize_t length;
    while ((length = read(file.get(), buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(length));
    return length < 0 ? std::nullopt : std::optional(text);
}

// The directorysizes lines ("SIZE MTIME NAME", the name percent-encoded), each as it stands and
// with the folder it names; lines that are not of that shape are kept as they are.
struct SizeLine {
    std::string text;
    std::optional<std::string> name;
};

std::vector<SizeLine> sizeLines(const std::string& text)
{
    std::vector<SizeLine> lines;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find('\n', start), text.size());
        const std::string_view line = std::string_view(text).substr(start, end - start);
        start = end + 1;
        if (line.empty())
            continue;
        const auto nameStart = line.find(' ', line.find(' ') + 1);
        lines.push_back(
            {std::string(line), nameStart == std::string_view::npos
                                    ? std::nullopt
                                    : std::optional(percentDecoded(line.substr(nameStart + 1)))});
    }
    return lines;
}

// Writes directorysizes aside and renames it over, so that a reader sees the old or the new.
std::string replaceSizes(int trashFd, const std::vector<SizeLine>& lines)
{
    std::string text;
    for (const SizeLine& line : lines)
        (text += line.text) += '\n';
    constexpr const char* aside = "directorysizes.quillane";
    const UniqueFd file = UniqueFd::adopt(
        openat(trashFd, aside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file)
        return describeErrno("directorysizes", errno);
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        renameat(trashFd, aside, trashFd, "directorysizes") != 0) {
        const int error = errno;
        unlinkat(trashFd, aside, 0);
        return describeErrno("directorysizes", error);
    }
    return {};
}

// Keeps the directorysizes lines whose folder is still in files/.
std::string forgetGoneSizes(int trashFd, int filesFd)
{
    const auto text = readAll(trashFd, "directorysizes");
    if (!text)
        return errno == ENOENT ? std::string() : describeErrno("directorysizes", errno);
    std::vector<SizeLine> lines = sizeLines(*text);
    const auto gone = std::erase_if(
        lines, [&](const SizeLine& line) { return line.name && !exists(filesFd, *line.name); });
    return gone == 0 ? std::string() : replaceSizes(trashFd, lines);
}

} // namespace

TrashedItemRemoval removeTrashedItem(int filesFd, int infoFd, const std::string& name,
                                     const RemovalRules& rules)
{
    TrashedItemRemoval removal;
    removal.item = removeEntry(filesFd, name, rules);
    if (!removal.item || !*removal.item || infoFd < 0)
        return removal;
    const std::string record = name + std::string(recordSuffix);
    const auto failed = [&](int error) {
        removal.recordErrorCode = error;
        removal.recordError = describeErrno(record, error);
        return removal;
    };
    if (rules.actFor || rules.allowsOwner) {
        struct stat info {
        };
        if (fstat(infoFd, &info) != 0)
            return failed(errno);
        if (rules.actFor)
            rules.actFor(info.st_uid);
        if (rules.allowsOwner && !rules.allowsOwner(info.st_uid))
            return failed(EPERM);
    }
    if (unlinkat(infoFd, record.c_str(), 0) != 0 && errno != ENOENT && errno != EISDIR)
        return failed(errno);
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

std::map<std::string, DirectorySize> readDirectorySizes(int trashFd)
{
    std::map<std::string, DirectorySize> sizes;
    for (const SizeLine& line : sizeLines(readAll(trashFd, "directorysizes").value_or("")))
        if (auto parsed = parseDirectorySizeLine(line.text))
            sizes.insert(std::move(*parsed));
    return sizes;
}

std::string writeDirectorySizes(int trashFd, const std::map<std::string, DirectorySize>& sizes)
{
    std::vector<SizeLine> lines = sizeLines(readAll(trashFd, "directorysizes").value_or(""));
    std::erase_if(lines,
                  [&](const SizeLine& line) { return line.name && sizes.contains(*line.name); });
    for (const auto& [name, size] : sizes)
        lines.push_back({directorySizeLine(name, size), name});
    return replaceSizes(trashFd, lines);
}

std::optional<std::int64_t> recordTime(int trashFd, const std::string& name)
{
    struct stat record {
    };
    if (fstatat(trashFd, ("info/" + name + std::string(recordSuffix)).c_str(), &record,
                AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return record.st_mtime;
}

std::string directorySizeLine(const std::string& name, const DirectorySize& size)
{
    return std::to_string(size.size) + ' ' + std::to_string(size.recordTime) + ' ' +
           percentEncoded(name);
}

std::optional<std::pair<std::string, DirectorySize>> parseDirectorySizeLine(std::string_view line)
{
    const std::string text(line);
    char* end = nullptr;
    DirectorySize size;
    size.size = std::strtoull(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != ' ')
        return std::nullopt;
    const char* time = end + 1;
    size.recordTime = std::strtoll(time, &end, 10);
    if (end == time || *end != ' ' || end[1] == '\0')
        return std::nullopt;
    return std::pair(percentDecoded(end + 1), size);
}

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t nameMax = 255;
// A record is a few short lines; a file much bigger than that is not one.
constexpr std::size_t recordLimit = 64 * 1024;

// One component of a path: no separator, no NUL, and not a way up or a way to stay.
bool isPlainName(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// The record of an item as text; none when it is missing, a link, not a plain file or too big.
std::optional<std::string> recordText(int infoFd, const std::string& name)
{
    const std::string record = name + std::string(recordSuffix);
    const UniqueFd file = UniqueFd::adopt(
        openat(infoFd, record.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {
    };
    if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        static_cast<std::size_t>(info.st_size) > recordLimit)
        return std::nullopt;
    std::string text;
    char buffer[8192];
    ssize_t length;
    while ((length = read(file.get(), buffer, sizeof buffer)) > 0 && text.size() <= recordLimit)
        text.append(buffer, static_cast<std::size_t>(length));
    if (length < 0 || text.size() > recordLimit) // it grew while read
        return std::nullopt;
    return text;
}

// Percent-decoding that refuses a "%" not followed by two hex digits: such a path was not
// written by a trash, and a guess at it could send an item anywhere.
std::optional<std::string> strictlyDecoded(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[i + 1])) ||
            !std::isxdigit(static_cast<unsigned char>(text[i + 2])))
            return std::nullopt;
        out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
    }
    return out;
}

// The place a "Path=" value names, absolute: a relative one lies below the volume's top. A path
// with a ".." in it, a NUL byte or no name at all is no place to go back to.
std::optional<fs::path> originalPathOf(std::string_view value, const fs::path& volumeTop)
{
    const auto decoded = strictlyDecoded(value);
    if (!decoded || decoded->find('\0') != std::string::npos)
        return std::nullopt;
    const bool absolute = decoded->starts_with('/');
    if (!absolute && !volumeTop.is_absolute())
        return std::nullopt;
    fs::path path = absolute ? fs::path("/") : volumeTop;
    bool named = false;
    for (std::size_t start = 0; start <= decoded->size();) {
        const auto end = std::min(decoded->find('/', start), decoded->size());
        const std::string_view part = std::string_view(*decoded).substr(start, end - start);
        start = end + 1;
        if (part == "..")
            return std::nullopt;
        if (part.empty() || part == ".")
            continue;
        path /= part;
        named = true;
    }
    return named ? std::optional(path) : std::nullopt;
}

// Local time, as trashes write it; the compact form is how some early ones wrote it.
QDateTime deletionDateOf(std::string_view value)
{
    const QString text = QString::fromLatin1(value.data(), static_cast<qsizetype>(value.size()));
    for (const QString& format :
         {QStringLiteral("yyyy-MM-dd'T'hh:mm:ss"), QStringLiteral("yyyyMMdd'T'hh:mm:ss")}) {
        if (QDateTime date = QDateTime::fromString(text, format); date.isValid())
            return date;
    }
    return {};
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

// The keys of the record's "[Trash Info]" group; the first of each counts.
TrashRecord parsedRecord(std::string name, const std::optional<std::string>& text,
                         const fs::path& volumeTop)
{
    TrashRecord record{std::move(name), std::nullopt, {}};
    if (!text)
        return record;
    bool inGroup = false;
    bool pathSeen = false;
    bool dateSeen = false;
    for (std::size_t start = 0; start < text->size();) {
        const auto end = std::min(text->find('\n', start), text->size());
        const std::string_view line = trimmed(std::string_view(*text).substr(start, end - start));
        start = end + 1;
        if (line.starts_with('[')) {
            inGroup = line == "[Trash Info]";
            continue;
        }
        const auto equals = line.find('=');
        if (!inGroup || line.starts_with('#') || equals == std::string_view::npos)
            continue;
        const std::string_view key = trimmed(line.substr(0, equals));
        const std::string_view value = trimmed(line.substr(equals + 1));
        if (key == "Path" && !std::exchange(pathSeen, true))
            record.originalPath = originalPathOf(value, volumeTop);
        else if (key == "DeletionDate" && !std::exchange(dateSeen, true))
            record.deletionDate = deletionDateOf(value);
    }
    return record;
}

// The name of the copy-th item of the name `name` in one folder: "report (2).pdf", a file's
// extension kept, shortened to fit a name's 255 bytes without splitting a character.
std::string numberedName(const std::string& name, bool isFolder, int copy)
{
    const std::string suffix = " (" + std::to_string(copy) + ")";
    const auto dot = isFolder ? std::string::npos : name.rfind('.');
    const bool keepsExtension =
        dot != std::string::npos && dot > 0 && name.size() - dot + suffix.size() < nameMax;
    std::string stem = name.substr(0, keepsExtension ? dot : std::string::npos);
    const std::string extension = keepsExtension ? name.substr(dot) : std::string();
    if (const std::size_t room = nameMax - suffix.size() - extension.size(); stem.size() > room) {
        std::size_t cut = room;
        while (cut > 0 && (static_cast<unsigned char>(stem[cut]) & 0xC0) == 0x80)
            --cut; // a UTF-8 continuation byte: the character began before it
        stem.resize(cut);
    }
    return stem + suffix + extension;
}

// The folder an item goes back into. Links on the way there are followed, as users link their
// folders; the folders made on the way are remembered, each with the folder holding it, so that
// a restore that fails afterwards leaves no trace.
struct DestinationFolder {
    UniqueFd fd;
    std::vector<std::pair<UniqueFd, std::string>> made;

    void undo()
    {
        for (auto folder = made.rbegin(); folder != made.rend(); ++folder)
            unlinkat(folder->first.get(), folder->second.c_str(), AT_REMOVEDIR);
        made.clear();
    }
};

std::string differentVolume(const fs::path& place)
{
    return place.native() + ": on another volume than the trash (an item is moved back, never "
                            "copied)";
}

// Opens `folder` (absolute), making the folders it lacks with the mode the user's umask gives.
// None is made on a volume other than the item's (`device`), where the item could not go anyway.
std::string openDestinationFolder(const fs::path& folder, dev_t device, DestinationFolder& out)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    UniqueFd current = UniqueFd::adopt(open("/", flags));
    fs::path reached = "/";
    for (const fs::path& part : folder.relative_path()) {
        if (part.empty())
            continue;
        reached /= part;
        UniqueFd next = UniqueFd::adopt(openat(current.get(), part.c_str(), flags));
        bool made = false;
        if (!next && errno == ENOENT) {
            struct stat holder {
            };
            if (out.made.empty() && fstat(current.get(), &holder) == 0 && holder.st_dev != device)
                return differentVolume(reached);
            made = mkdirat(current.get(), part.c_str(), 0777) == 0;
            if (!made && errno != EEXIST)
                return describeErrno(reached, errno);
            // Made here, and so never a link, unless something else took its place meanwhile.
            next = UniqueFd::adopt(openat(current.get(), part.c_str(), flags | O_NOFOLLOW));
        }
        if (!next)
            return describeErrno(reached, errno);
        if (made)
            out.made.emplace_back(std::move(current), part.native());
        current = std::move(next);
    }
    out.fd = std::move(current);
    return {};
}

// Moves an entry to a new name without ever replacing what has that name (EEXIST then); 0, or
// the errno. Where the filesystem cannot rename so (NFS says EINVAL), a file is linked to its new
// name and unlinked from the old, which refuses just the same; a folder is renamed after a look,
// since a rename can only ever replace an empty folder by it.
int moveWithoutReplacing(int fromFd, const std::string& from, int toFd, const std::string& to,
                         bool isFolder)
{
    if (renameat2(fromFd, from.c_str(), toFd, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL)
        return errno;
    if (isFolder) {
        if (exists(toFd, to))
            return EEXIST;
        return renameat(fromFd, from.c_str(), toFd, to.c_str()) == 0 ? 0 : errno;
    }
    if (linkat(fromFd, from.c_str(), toFd, to.c_str(), 0) != 0)
        return errno;
    if (unlinkat(fromFd, from.c_str(), 0) != 0) {
        const int error = errno;
        unlinkat(toFd, to.c_str(), 0);
        return error;
    }
    return 0;
}

// Drops the directorysizes line of the item `name`, where it has one.
std::string forgetSize(int trashFd, const std::string& name)
{
    const auto text = readAll(trashFd, "directorysizes");
    if (!text)
        return errno == ENOENT ? std::string() : describeErrno("directorysizes", errno);
    std::vector<SizeLine> lines = sizeLines(*text);
    if (std::erase_if(lines, [&](const SizeLine& line) { return line.name == name; }) == 0)
        return {};
    return replaceSizes(trashFd, lines);
}

} // namespace

TrashRecord readTrashRecord(int trashFd, const std::string& name,
                            const std::filesystem::path& volumeTop)
{
    const UniqueFd info = UniqueFd::adopt(openat(trashFd, "info", folderFlags));
    return parsedRecord(
        name, info && isPlainName(name) ? recordText(info.get(), name) : std::nullopt, volumeTop);
}

std::string listTrashRecords(int trashFd, const std::filesystem::path& volumeTop,
                             std::size_t batchSize,
                             const std::function<bool(std::vector<TrashRecord>&&)>& batch)
{
    const int filesFd = openat(trashFd, "files", folderFlags);
    if (filesFd < 0)
        return describeErrno("files", errno);
    DirHandle files(fdopendir(filesFd));
    if (!files) {
        const int error = errno;
        close(filesFd);
        return describeErrno("files", error);
    }
    const UniqueFd info = UniqueFd::adopt(openat(trashFd, "info", folderFlags));
    batchSize = std::max<std::size_t>(batchSize, 1);
    std::vector<TrashRecord> records;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(files.get());
        if (!entry)
            break;
        const std::string name = entry->d_name;
        if (isDotOrDotDot(entry->d_name) || isSkippedTrashEntry(name))
            continue;
        records.push_back(
            parsedRecord(name, info ? recordText(info.get(), name) : std::nullopt, volumeTop));
        if (records.size() == batchSize && !batch(std::exchange(records, {})))
            return {};
    }
    const int error = errno;
    if (!records.empty())
        batch(std::move(records));
    return error == 0 ? std::string() : describeErrno("files", error);
}

RestoreResult restoreTrashedItem(int trashFd, const std::string& name,
                                 const std::filesystem::path& destination,
                                 RestoreCollision onCollision)
{
    RestoreResult result;
    const auto failed = [&](std::string error) {
        result.error = std::move(error);
        return result;
    };
    const std::string leaf = destination.filename().native();
    if (!isPlainName(name))
        return failed(describeErrno(name, EINVAL));
    if (!destination.is_absolute() || !isPlainName(leaf))
        return failed(destination.native() + ": not a place an item can go back to");
    const UniqueFd files = UniqueFd::adopt(openat(trashFd, "files", folderFlags));
    if (!files)
        return failed(describeErrno("files", errno));
    struct stat item {
    };
    if (fstatat(files.get(), name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0)
        return failed(describeErrno(name, errno));
    const bool isFolder = S_ISDIR(item.st_mode);

    DestinationFolder folder;
    if (std::string error = openDestinationFolder(destination.parent_path(), item.st_dev, folder);
        !error.empty()) {
        folder.undo();
        return failed(std::move(error));
    }
    std::string placed = leaf;
    for (int copy = 2;; ++copy) {
        const int error =
            moveWithoutReplacing(files.get(), name, folder.fd.get(), placed, isFolder);
        if (error == 0)
            break;
        const bool taken = error == EEXIST || error == ENOTEMPTY;
        if (taken && onCollision != RestoreCollision::KeepBoth) {
            folder.undo();
            result.status = onCollision == RestoreCollision::Report
                                ? RestoreResult::Status::NameTaken
                                : RestoreResult::Status::Skipped;
            return result;
        }
        if (!taken || copy > 9999) {
            folder.undo();
            const fs::path place = destination.parent_path() / placed;
            return failed(error == EXDEV ? differentVolume(place) : describeErrno(place, error));
        }
        placed = numberedName(leaf, isFolder, copy);
    }
    result.status = RestoreResult::Status::Restored;
    result.restoredAs = destination.parent_path() / placed;

    // The item is back; what follows only tidies the trash after it.
    const auto tidyingFailed = [&](const std::string& error) {
        result.error += (result.error.empty() ? "" : "; ") + error;
    };
    const std::string record = name + std::string(recordSuffix);
    if (const UniqueFd info = UniqueFd::adopt(openat(trashFd, "info", folderFlags)); !info) {
        if (errno != ENOENT)
            tidyingFailed(describeErrno("info", errno));
    } else if (unlinkat(info.get(), record.c_str(), 0) != 0 && errno != ENOENT) {
        tidyingFailed(describeErrno(record, errno));
    }
    if (const std::string error = forgetSize(trashFd, name); !error.empty())
        tidyingFailed(error);
    return result;
}

} // namespace quillane
