#include "ModelHarness.h"

#include <QTest>
#include <fstream>

namespace quillane::test
{

void ModelHarness::setMounts(
    const std::vector<std::tuple<std::string, std::string, std::string>>& entries)
{
    std::ofstream file(mountinfo, std::ios::trunc);
    int id = 20;
    for (const auto& [point, type, options] : entries) {
        std::string escaped;
        for (const char c : point)
            escaped += c == ' ' ? std::string("\\040") : std::string(1, c);
        file << id << " 1 8:" << id << " / " << escaped << " " << options << " shared:1 - " << type
             << " /dev/sd" << id << " " << options << "\n";
        ++id;
    }
}

VolumeObserver& ModelHarness::start()
{
    observer = std::make_unique<VolumeObserver>(platform(), emptying);
    settle();
    return *observer;
}

bool ModelHarness::awaitEvent()
{
    return QTest::qWaitFor([this] { return scheduler.pendingCount() > 0; }, 5000);
}

std::vector<std::filesystem::path> ModelHarness::listedPaths() const
{
    std::vector<std::filesystem::path> paths;
    for (const Volume& volume : observer->volumes())
        paths.push_back(volume.volPath().value_or(std::filesystem::path()));
    return paths;
}

} // namespace quillane::test
