#pragma once

#include "Result.h"
#include "SafeRemoval.h"

#include <QDateTime>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillane
{

// The format of a trash folder, as every Linux desktop writes it (the freedesktop.org Trash
// specification): each item in files/, its record in info/NAME.trashinfo, and the cache of
// folder sizes, directorysizes, beside them. All calls work relative to open folders and block;
// run them off the main thread.

// The folder-view file that trashes filled on other systems carry. It is no item of the user's:
// counting and emptying leave out the entry of files/ by that exact name, so a trash whose count
// says it holds items can always be emptied of them. Sizes leave out more: any file whose path
// holds the name anywhere, as part of a longer name too, adds nothing.
inline constexpr std::string_view skippedTrashEntryName = ".DS_Store";

inline bool isSkippedTrashEntry(std::string_view name)
{
    return name == skippedTrashEntryName;
}

// Whether a path (or one name of it) is left out of the sizes of a trash.
inline bool isUnsizedTrashPath(std::string_view path)
{
    return path.find(skippedTrashEntryName) != std::string_view::npos;
}

// What became of one trashed item and its record.
struct TrashedItemRemoval {
    Result<bool> item = Result<bool>::success(true); // as removeEntry reports it
    std::string recordError; // the item went, but its record could not; empty otherwise
    int recordErrorCode = 0; // the errno behind recordError
};

// Removes the item `name` of files/ (open as filesFd) with everything in it, as removeEntry does
// under `rules`, then its record in info/ (infoFd, or -1 where the trash has no info folder).
// Where the rules act for someone, the record goes as the owner of info/, once the rules allow
// that owner. The record goes only after the item did: a failed removal keeps both, so no item
// is ever left without its record, and the record of an item that was not there stays too (a
// program trashing a file writes the record first). The record is not looked at first, so
// nothing mounted on it is reached; a folder of its name is no record and stays.
TrashedItemRemoval removeTrashedItem(int filesFd, int infoFd, const std::string& name,
                                     const RemovalRules& rules = {});

// The records in info/ of the trash folder open as trashFd, by file name.
std::set<std::string> listRecords(int trashFd);

// Puts a trash in order after an emptying. Each record of `recordsBefore` whose item is gone is
// removed: other programs would list it as an item forever. Records that came later are left
// alone, since a program trashing a file writes the record first. Then every directorysizes
// line that names nothing in files/ is dropped (the file is written aside and renamed over).
// Returns one message per record or file that could not be changed, and only the first on a
// read-only volume.
std::vector<std::string> tidyTrash(int trashFd, const std::set<std::string>& recordsBefore);

// A line of directorysizes: the size of a trashed folder as of its record's modification time
// (seconds since the epoch). A line is worth as much as whoever wrote it counted.
struct DirectorySize {
    std::uint64_t size = 0;
    std::int64_t recordTime = 0;
    friend bool operator==(const DirectorySize&, const DirectorySize&) = default;
};

// A directorysizes line, and the folder and size a line gives (none for another shape).
std::string directorySizeLine(const std::string& name, const DirectorySize& size);
std::optional<std::pair<std::string, DirectorySize>> parseDirectorySizeLine(std::string_view line);
// Names as directorysizes writes them: every byte but letters, digits and "-._~" as %XX.
std::string percentEncoded(std::string_view name);
std::string percentDecoded(std::string_view text);

// The directorysizes lines of the trash folder open as trashFd, by folder name.
std::map<std::string, DirectorySize> readDirectorySizes(int trashFd);
// Sets the lines of these folders and keeps the others (written aside and renamed over);
// empty, or what went wrong.
std::string writeDirectorySizes(int trashFd, const std::map<std::string, DirectorySize>& sizes);
// The modification time of the record of the item `name`, where it has one.
std::optional<std::int64_t> recordTime(int trashFd, const std::string& name);

// One item of a trash as its record tells it. The record is missing or broken when it has no
// readable "Path=" line; such an item can still be restored, to a folder the user picks.
struct TrashRecord {
    std::string name; // the entry's name in files/, its bytes as they are
    std::optional<std::filesystem::path> originalPath; // absolute and percent-decoded
    QDateTime deletionDate; // invalid when the record gives none that parses
};

// Reads the record of the item `name` of the trash folder open as trashFd. A relative "Path="
// (as volume trashes write them) is resolved against volumeTop, the top folder of the volume.
// Only the "[Trash Info]" group counts. What is not a record reads as a missing one: a link or
// no plain file, more than 64 KiB, no group, or a "Path=" with a bad %XX, a NUL byte or a "..".
TrashRecord readTrashRecord(int trashFd, const std::string& name,
                            const std::filesystem::path& volumeTop);

// Reads every item of files/ (skipped entries aside) with its record and hands them to `batch`
// in groups of at most batchSize; stops early when `batch` returns false. Returns empty, or
// what went wrong opening files/.
std::string listTrashRecords(int trashFd, const std::filesystem::path& volumeTop,
                             std::size_t batchSize,
                             const std::function<bool(std::vector<TrashRecord>&&)>& batch);

// What to do when the place an item goes back to is taken.
enum class RestoreCollision { Report, KeepBoth, Skip };

struct RestoreResult {
    enum class Status { Restored, NameTaken, Skipped, Failed };
    Status status = Status::Failed;
    std::filesystem::path restoredAs; // where the item now is, when restored
    // Why it failed; or, once restored, what of the trash could not be tidied after it (its
    // record or its directorysizes line), else empty.
    std::string error;
};

// Puts the item `name` of the trash folder open as trashFd back at `destination` (its record's
// original path, or a place the user picked), creating missing parent folders. It is renamed,
// never copied. When `destination` is taken, Report changes nothing and says NameTaken,
// KeepBoth restores under a free name beside it ("name (2)", "name (3)", ...), Skip changes
// nothing. After the item, its record goes, then its directorysizes line.
RestoreResult restoreTrashedItem(int trashFd, const std::string& name,
                                 const std::filesystem::path& destination,
                                 RestoreCollision onCollision);

} // namespace quillane
