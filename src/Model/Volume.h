#pragma once

#include "Picture.h"

#include <QFuture>
#include <QMetaType>
#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quillane
{

class VolumeNames;

// One trash location of the panel: a mounted volume or a cloud client's mounted folder, with
// the trash folder that receives its deleted items. A record never changes; the list replaces
// records instead. Everything derived is read again on each call, but for the name the scan
// learnt.
class Volume
{
public:
    enum class Kind { None, Volume, CloudStorage };

    // cloudProvider names the cloud client behind a mounted cloud folder (its provider, such
    // as "GoogleDrive", where the mount tells it); such a volume is of kind CloudStorage.
    explicit Volume(std::optional<std::filesystem::path> volPath = std::nullopt,
                    std::optional<std::filesystem::path> trashURL = std::nullopt,
                    double progress = 0, std::string cloudProvider = {});

    const QUuid& id() const { return m_id; }
    const std::optional<std::filesystem::path>& volPath() const { return m_volPath; }
    const std::optional<std::filesystem::path>& trashURL() const { return m_trashURL; }
    double progress() const { return m_progress; }
    const std::string& cloudProvider() const { return m_cloudProvider; }

    Kind kind() const;
    // The name the desktop gives it. Looking it up may wait on a device or on udisks, so the
    // scan learns it off the main thread, and the name learnt is what a record gives after.
    std::string name(const VolumeNames& volumeNames) const;
    void learnName(const VolumeNames& volumeNames) { m_learntName = name(volumeNames); }
    // The volume that holds the home folder is "Home", with the desktop's home-folder picture.
    Picture image(const VolumeNames& volumeNames) const;

    // Both read the file system and may take long on a large trash: call them off the main
    // thread. The size is 0 when the trash cannot be walked, with one "Size Error: " line.
    int itemCount() const;
    std::uint64_t allocatedSize() const;
    // allocatedSize() on the background thread pool.
    QFuture<std::uint64_t> calculatedSize() const;

    // Records are equal only when they are the same record.
    friend bool operator==(const Volume& a, const Volume& b) { return a.m_id == b.m_id; }

private:
    QUuid m_id;
    std::optional<std::filesystem::path> m_volPath;
    std::optional<std::filesystem::path> m_trashURL;
    double m_progress;
    std::string m_cloudProvider;
    std::optional<std::string> m_learntName;
};

// The pictures our resources hold for cloud-storage providers, by provider name.
bool hasProviderAsset(const std::string& providerName);

} // namespace quillane

Q_DECLARE_METATYPE(quillane::Volume)
