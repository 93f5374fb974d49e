#include "Volume.h"

#include "Platform/Console.h"
#include "Platform/FileSystem.h"
#include "Platform/TrashItems.h"
#include "Platform/VolumeNames.h"

#include <QtConcurrent>
#include <algorithm>
#include <array>

namespace quillane
{

Volume::Volume(std::optional<std::filesystem::path> volPath,
               std::optional<std::filesystem::path> trashURL, double progress,
               std::string cloudProvider)
    : m_id(QUuid::createUuid()), m_volPath(std::move(volPath)), m_trashURL(std::move(trashURL)),
      m_progress(progress), m_cloudProvider(std::move(cloudProvider))
{
}

Volume::Kind Volume::kind() const
{
    if (!m_volPath)
        return Kind::None;
    // Only the mount tells a cloud folder: a name on the way says nothing.
    return m_cloudProvider.empty() ? Kind::Volume : Kind::CloudStorage;
}

std::string Volume::name(const VolumeNames& volumeNames) const
{
    if (m_learntName)
        return *m_learntName;
    switch (kind()) {
    case Kind::None:
        return {};
    case Kind::CloudStorage:
        // A cloud client's mount is named by its folder, as the file manager shows it.
        return lastPathComponent(*m_volPath);
    case Kind::Volume:
        break;
    }
    if (volumeNames.holdsHome(*m_volPath))
        return "Home";
    if (auto label = volumeNames.volumeName(*m_volPath); label && !label->empty())
        return *label;
    return lastPathComponent(*m_volPath);
}

Picture Volume::image(const VolumeNames& volumeNames) const
{
    switch (kind()) {
    case Kind::None:
        return Picture::symbol("externaldrive");
    case Kind::CloudStorage:
        if (hasProviderAsset(m_cloudProvider))
            return Picture::asset(m_cloudProvider);
        break;
    case Kind::Volume:
        if (volumeNames.holdsHome(*m_volPath))
            return Picture::symbol("user-home");
        break;
    }
    return Picture::fileIcon(*m_volPath);
}

int Volume::itemCount() const
{
    if (!m_trashURL)
        return 0;
    const auto entries = listDirectory(*m_trashURL);
    if (!entries) {
        Console::writeLine("Counting Error: ", entries.error());
        return 0;
    }
    return static_cast<int>(std::ranges::count_if(
        *entries, [](const std::string& name) { return !isSkippedTrashEntry(name); }));
}

std::uint64_t Volume::allocatedSize() const
{
    if (!m_trashURL)
        return 0;
    const auto size = allocatedSizeOfTrash(*m_trashURL);
    if (!size) {
        Console::writeLine("Size Error: ", size.error());
        return 0;
    }
    return *size;
}

QFuture<std::uint64_t> Volume::calculatedSize() const
{
    return QtConcurrent::run([volume = *this] { return volume.allocatedSize(); });
}

bool hasProviderAsset(const std::string& providerName)
{
    static const std::array<std::string_view, 3> assets = {"Dropbox", "GoogleDrive", "OneDrive"};
    return std::ranges::find(assets, providerName) != assets.end();
}

} // namespace quillane
