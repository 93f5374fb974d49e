#pragma once

#include <QJsonArray>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace quillane
{

class Volume;
class VolumeObserver;
class VolumeNames;

// One location as `quillane list` reports it.
struct LocationReport {
    QString name;
    QString kind; // "volume" or "cloud"
    QString location;
    std::optional<QString> trash;
    int items = 0;
    std::uint64_t bytes = 0;
};

// Reads a location's name, count and size; this walks its trash, so call it off the main thread.
LocationReport reportLocation(const Volume& volume, const VolumeNames& volumeNames);

QJsonArray toJson(const std::vector<LocationReport>& reports);
// A table with a header line, one line per location.
QString toTable(const std::vector<LocationReport>& reports);

// Calls ready once, with the first complete list of locations the observer publishes.
void whenFirstListed(VolumeObserver& observer, std::function<void()> ready);

// `quillane list [--json]`: waits for the first complete list of locations, prints it to
// standard output and returns the exit code.
int runListCommand(bool json);

} // namespace quillane
