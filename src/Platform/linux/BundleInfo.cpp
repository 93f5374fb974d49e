#include "Platform/BundleInfo.h"

#include "Platform/BuildInfo.h"

#include <QCoreApplication>
#include <QFile>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

std::optional<fs::path> runningExecutable()
{
    if (QCoreApplication::instance()) {
        const QString path = QCoreApplication::applicationFilePath();
        if (!path.isEmpty())
            return fs::path(QFile::encodeName(path).toStdString());
    }
    std::error_code error;
    fs::path path = fs::read_symlink("/proc/self/exe", error);
    if (error)
        return std::nullopt;
    return path;
}

fs::path resourceFolderFor(const std::optional<fs::path>& executable)
{
    if (executable && executable->parent_path().filename() == "bin") {
        fs::path installed = executable->parent_path().parent_path() / "share" / "quillane";
        std::error_code error;
        if (fs::is_directory(installed, error))
            return installed;
    }
    return BuildInfo::resourceFolder;
}

} // namespace

std::optional<fs::path> BundleInfo::resource(const std::string& name) const
{
    // Resources are named relative to the folder; an absolute name would step outside it.
    if (name.empty() || fs::path(name).is_absolute() || resourceFolder.empty())
        return std::nullopt;
    fs::path path = resourceFolder / name;
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return std::nullopt;
    return path;
}

BundleInfo BundleInfo::current()
{
    BundleInfo info;
    info.buildVersion = QString::number(BuildInfo::buildNumber);
    info.shortVersion = QString::fromLatin1(BuildInfo::version);
    info.executablePath = runningExecutable();
    info.resourceFolder = resourceFolderFor(info.executablePath);
    return info;
}

} // namespace quillane
