#include "Platform/TrashItems.h"

#include "DirHandle.h"
#include "Platform/SafeRemoval.h"

#include <cctype>
#include <cerrno>
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

} // namespace quillane
