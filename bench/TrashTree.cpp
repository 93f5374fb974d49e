#include "TrashTree.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <vector>

namespace quillane::bench
{

namespace fs = std::filesystem;

std::string printablePath(const fs::path& path)
{
    std::string text;
    for (const char c : path.native()) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && byte != '\\') {
            text += c;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            text += escaped;
        }
    }
    return text;
}

std::string trashInfoText(const fs::path& originalPath, std::string_view deletionDate)
{
    // The path keeps ASCII letters, digits, "-._~" and "/"; every other byte is %XX.
    std::string path;
    for (const char c : originalPath.native()) {
        const bool kept = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~' ||
                          c == '/';
        if (kept) {
            path += c;
            continue;
        }
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(c));
        path += escaped;
    }
    return "[Trash Info]\nPath=" + path + "\nDeletionDate=" + std::string(deletionDate) + "\n";
}

namespace
{

[[noreturn]] void fail(const char* what, const fs::path& path, int error)
{
    throw std::runtime_error(std::string(what) + " " + printablePath(path) + ": " +
                             std::strerror(error));
}

void writeAll(int fd, const char* data, std::size_t size, const fs::path& path)
{
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            fail("cannot write", path, errno);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

// Kinds of names that trip code which takes file names for text.
enum class OddName { Latin1, BrokenBytes, Newline, LeadingDash, Longest, Emoji, Count };

// Every link kind a trashed tree can hold; none of them may add to the total.
enum class LinkKind {
    DanglingRelative,
    DanglingAbsolute,
    BigFile,
    BigFileFolder,
    Loop,
    Sibling,
    Count
};

constexpr std::size_t nameMax = 255;
// Keep generated paths well under PATH_MAX: the generator works with whole paths.
constexpr std::size_t pathBudget = 3500;

class Generator
{
public:
    explicit Generator(const TrashTreeOptions& options)
        : m_options(options), m_random(options.layout), m_remaining(options.fileCount)
    {
        // Incompressible content, so that a compressing file system allocates what we write.
        m_content.resize(64 * 1024);
        for (char& c : m_content)
            c = static_cast<char>(m_random() & 0xff);
    }

    TrashTree run()
    {
        m_tree.files = m_options.root / "files";
        makeFolder(m_options.root);
        makeFolder(m_tree.files);
        // A real trash has info/ beside files/; sizing does not read it.
        makeFolder(m_options.root / "info");
        m_foldersAndLinks.push_back(m_tree.files);

        while (m_remaining > 0)
            addItem();
        if (m_options.trashInfo)
            writeTrashInfo();

        for (const fs::path& path : m_foldersAndLinks) {
            struct stat info {
            };
            if (lstat(path.c_str(), &info) != 0)
                fail("cannot stat", path, errno);
            m_tree.ownBytesOfFoldersAndLinks += static_cast<std::uint64_t>(info.st_blocks) * 512;
        }
        return m_tree;
    }

private:
    std::uint64_t uniform(std::uint64_t low, std::uint64_t high)
    {
        return std::uniform_int_distribution<std::uint64_t>(low, high)(m_random);
    }

    bool chance(double probability) { return std::bernoulli_distribution(probability)(m_random); }

    void checkInterrupted()
    {
        if (m_options.interrupted && m_options.interrupted())
            throw Interrupted{};
    }

    // One item as the trash holds it at its top: most often a single file, otherwise a folder
    // with anything from one file to a tenth of the whole tree.
    void addItem()
    {
        if (m_remaining == 1 || chance(0.55)) {
            addFile(m_tree.files, 0);
            return;
        }
        const double largest = std::max<double>(10, static_cast<double>(m_options.fileCount) / 10);
        // Log-uniform: many small folders, a few large ones.
        const auto drawn = static_cast<std::uint64_t>(
            std::exp(std::uniform_real_distribution<double>(0, std::log(largest))(m_random)));
        const std::uint64_t budget = std::clamp<std::uint64_t>(drawn, 1, m_remaining);
        const int depth = static_cast<int>(uniform(0, 3) + (chance(0.3) ? uniform(0, 7) : 0));
        const fs::path folder = m_tree.files / nextName(m_tree.files, "");
        addFolder(folder);
        fillFolder(folder, budget, depth, 1);
    }

    void fillFolder(const fs::path& folder, std::uint64_t budget, int depthLeft, int depth)
    {
        std::uint64_t here = budget;
        if (depthLeft > 0 && budget > 8)
            here = uniform(budget / 5, budget / 2);
        for (std::uint64_t i = 0; i < here; ++i)
            addFile(folder, depth);
        if (chance(0.05))
            addFolder(folder / nextName(folder, ""));

        std::uint64_t rest = budget - here;
        if (rest == 0)
            return;
        // Large trashed folders (source trees, photo libraries) hold a folder per dozen files
        // or so.
        const std::uint64_t subfolders =
            uniform(1, std::min<std::uint64_t>(rest, std::clamp<std::uint64_t>(rest / 12, 4, 64)));
        for (std::uint64_t k = 0; k < subfolders; ++k) {
            const std::uint64_t left = subfolders - k;
            std::uint64_t share = rest;
            if (left > 1)
                share =
                    std::clamp<std::uint64_t>(uniform(1, 2 * rest / left), 1, rest - (left - 1));
            const fs::path sub = folder / nextName(folder, "");
            addFolder(sub);
            fillFolder(sub, share, depthLeft - 1, depth + 1);
            rest -= share;
        }
    }

    void addFile(const fs::path& folder, int depth)
    {
        static constexpr std::array extensions = {".txt", ".pdf",  ".jpg", ".png",    ".odt",
                                                  ".log", ".json", ".c",   ".tar.gz", ""};
        const fs::path path =
            folder / nextName(folder, extensions[uniform(0, extensions.size() - 1)]);
        const std::uint64_t size = nextFileSize();

        checkInterrupted();
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0)
            fail("cannot create", path, errno);
        std::uint64_t left = size;
        while (left > 0) {
            const std::size_t chunk =
                static_cast<std::size_t>(std::min<std::uint64_t>(left, m_content.size()));
            writeAll(fd, m_content.data(), chunk, path);
            left -= chunk;
        }
        if (close(fd) != 0)
            fail("cannot close", path, errno);
        ++m_tree.regularFiles;
        --m_remaining;

        if (chance(1.0 / 80))
            addLink(folder, path, depth);
    }

    // Mostly small files, some empty, a few of a hundred kilobytes.
    std::uint64_t nextFileSize()
    {
        const double pick = std::uniform_real_distribution<double>(0, 1)(m_random);
        if (pick < 0.20)
            return 0;
        if (pick < 0.82)
            return uniform(1, 4096);
        if (pick < 0.97)
            return uniform(4097, 16384);
        return uniform(16385, 128 * 1024);
    }

    void addLink(const fs::path& folder, const fs::path& sibling, int depth)
    {
        // The first links go through every kind, so that even a small tree holds each.
        const auto count = static_cast<std::uint64_t>(LinkKind::Count);
        const auto kind =
            static_cast<LinkKind>(m_tree.links < count ? m_tree.links : uniform(0, count - 1));
        std::string target;
        switch (kind) {
        case LinkKind::DanglingRelative:
            target = "../gone-" + std::to_string(m_serial) + "/missing.txt";
            break;
        case LinkKind::DanglingAbsolute:
            target = (m_options.root / "never-made" / std::to_string(m_serial)).native();
            break;
        case LinkKind::BigFile:
            target = m_options.bigFile.native();
            break;
        case LinkKind::BigFileFolder:
            target = m_options.bigFile.parent_path().native();
            break;
        case LinkKind::Loop:
            // A walk that followed it would never end, or count this folder again and again.
            target = depth > 0 ? ".." : ".";
            break;
        case LinkKind::Sibling:
            target = sibling.filename().native();
            break;
        case LinkKind::Count:
            break;
        }
        const fs::path path = folder / nextName(folder, ".lnk");
        checkInterrupted();
        if (symlink(target.c_str(), path.c_str()) != 0)
            fail("cannot link", path, errno);
        m_foldersAndLinks.push_back(path);
        ++m_tree.links;
    }

    // One record per item at the top of files/, named after it, saying where it came from.
    void writeTrashInfo()
    {
        const fs::path info = m_options.root / "info";
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_tree.files))
            names.push_back(entry.path().filename().native());

        m_tree.topItems = names.size();
        for (const std::string& name : names) {
            // No trash writer could have recorded a name that leaves no room for the suffix;
            // such an item stays without a record, as a stray one would.
            if (name.size() + std::strlen(".trashinfo") > nameMax)
                continue;
            const std::string record =
                trashInfoText("/home/someone/Documents/" + name, "2024-05-01T12:00:00");
            const fs::path path = info / (name + ".trashinfo");
            checkInterrupted();
            const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            if (fd < 0)
                fail("cannot create", path, errno);
            writeAll(fd, record.data(), record.size(), path);
            if (close(fd) != 0)
                fail("cannot close", path, errno);
            ++m_tree.trashInfos;
        }
    }

    void addFolder(const fs::path& path)
    {
        makeFolder(path);
        m_foldersAndLinks.push_back(path);
        ++m_tree.folders;
    }

    void makeFolder(const fs::path& path)
    {
        checkInterrupted();
        if (mkdir(path.c_str(), 0755) != 0)
            fail("cannot make folder", path, errno);
    }

    // A name unique in the whole tree. The first names go through every odd kind, so that even
    // a small tree holds each, at the top and below it; after that about one name in forty is
    // odd.
    std::string nextName(const fs::path& folder, const char* extension)
    {
        static constexpr std::array words = {"report", "IMG_",       "notes", "invoice", "backup",
                                             "draft",  "screenshot", "song",  "thesis",  "build"};
        const std::string serial = std::to_string(++m_serial);
        const auto oddKinds = static_cast<std::uint64_t>(OddName::Count);
        const bool roomForLongest = folder.native().size() + 1 + nameMax < pathBudget;

        std::string name;
        if (m_serial <= oddKinds || chance(1.0 / 40)) {
            auto kind = static_cast<OddName>(m_serial <= oddKinds ? m_serial - 1
                                                                  : uniform(0, oddKinds - 1));
            if (kind == OddName::Longest && !roomForLongest)
                kind = OddName::LeadingDash;
            ++m_tree.oddNames;
            switch (kind) {
            case OddName::Latin1:
                name = "r\xe9sum\xe9 " + serial + extension;
                break;
            case OddName::BrokenBytes:
                // Bytes no UTF-8 text holds, then a euro sign cut short.
                name = "\xff\xfe-" + serial + "-\xe2\x82" + extension;
                break;
            case OddName::Newline:
                name = "first line\nsecond line " + serial + extension;
                break;
            case OddName::LeadingDash:
                name = "-rf " + serial + extension;
                break;
            case OddName::Longest: {
                name = serial + "-";
                const std::string tail = extension;
                while (name.size() + tail.size() < nameMax)
                    name += "long name ";
                name.resize(nameMax - tail.size());
                name += tail;
                break;
            }
            case OddName::Emoji:
                name = "Fotos \xf0\x9f\x93\xb7 " + serial + extension;
                break;
            case OddName::Count:
                break;
            }
            return name;
        }
        return words[uniform(0, words.size() - 1)] + std::string("-") + serial + extension;
    }

    const TrashTreeOptions& m_options;
    std::mt19937_64 m_random;
    std::uint64_t m_remaining = 0;
    std::uint64_t m_serial = 0;
    std::string m_content;
    TrashTree m_tree;
    std::vector<fs::path> m_foldersAndLinks;
};

} // namespace

TrashTree makeTrashTree(const TrashTreeOptions& options)
{
    return Generator(options).run();
}

void makeBigFile(const fs::path& path, std::uint64_t bytes)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("cannot create", path, errno);
    // posix_fallocate() writes the blocks itself where the file system cannot reserve them.
    const int error = posix_fallocate(fd, 0, static_cast<off_t>(bytes));
    close(fd);
    if (error != 0)
        fail("cannot allocate", path, error);
}

std::string fileSystemName(const fs::path& path)
{
    struct statfs info {
    };
    if (statfs(path.c_str(), &info) != 0)
        return "an unknown file system";
    switch (static_cast<unsigned long>(info.f_type)) {
    case EXT4_SUPER_MAGIC:
        return "ext4";
    case XFS_SUPER_MAGIC:
        return "xfs";
    case BTRFS_SUPER_MAGIC:
        return "btrfs";
    case TMPFS_MAGIC:
        return "tmpfs";
    case OVERLAYFS_SUPER_MAGIC:
        return "overlayfs";
    case NFS_SUPER_MAGIC:
        return "nfs";
    case F2FS_SUPER_MAGIC:
        return "f2fs";
    default: {
        char name[32];
        std::snprintf(name, sizeof name, "file system 0x%lx",
                      static_cast<unsigned long>(info.f_type));
        return name;
    }
    }
}

ScratchFolder::ScratchFolder(const fs::path& parent)
{
    std::string pattern = (parent / "quillane-bench-XXXXXX").native();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("cannot make a scratch folder in " + printablePath(parent) + ": " +
                                 std::strerror(errno));
    m_path = pattern;
}

ScratchFolder::~ScratchFolder()
{
    std::fputs("removing the scratch folder\n", stderr);
    std::error_code error;
    fs::remove_all(m_path, error);
    if (error)
        std::fprintf(stderr, "could not remove the scratch folder %s: %s\n",
                     printablePath(m_path).c_str(), error.message().c_str());
}

} // namespace quillane::bench
