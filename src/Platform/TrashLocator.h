#pragma once

#include "Result.h"

#include <filesystem>

namespace quillane
{

// Finds the trash folder that receives the items deleted from a location: the folder whose
// entries are the trashed items themselves. It never creates anything; where no trash exists
// it fails with an error that says what it looked for.
class TrashLocator
{
public:
    virtual ~TrashLocator() = default;

    virtual Result<std::filesystem::path>
    trashFolder(const std::filesystem::path& location) const = 0;
    // The user's own trash folder, whether or not it exists yet.
    virtual std::filesystem::path homeTrashFolder() const = 0;
};

} // namespace quillane
