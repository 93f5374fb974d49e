#include "TestSupport.h"

#include <QProcess>
#include <QTest>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace quillane::test
{

void writeFile(const std::filesystem::path& path, std::string_view bytes)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void makeFolder(const std::filesystem::path& path)
{
    std::filesystem::create_directories(path);
}

bool run(const QString& program, const QStringList& arguments, QString* output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(60000);
    const QString text = QString::fromLocal8Bit(process.readAll());
    if (output)
        *output = text;
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning().noquote() << program << arguments.join(QLatin1Char(' ')) << "failed:" << text;
        return false;
    }
    return true;
}

bool canMount()
{
    return getuid() == 0 && qEnvironmentVariableIsSet("QUILLANE_PRIVATE_MOUNTS");
}

bool mountExt4(const std::filesystem::path& image, const std::filesystem::path& mountPoint,
               const QString& label, uid_t owner)
{
    std::filesystem::create_directories(mountPoint);
    QStringList mkfs = {QStringLiteral("-q"), QStringLiteral("-F"), QStringLiteral("-E"),
                        QStringLiteral("root_owner=%1:%1").arg(owner)};
    if (!label.isEmpty())
        mkfs << QStringLiteral("-L") << label;
    mkfs << QString::fromStdString(image.native()) << QStringLiteral("128M");
    return run(QStringLiteral("mkfs.ext4"), mkfs) &&
           run(QStringLiteral("mount"), {QStringLiteral("-o"), QStringLiteral("loop"),
                                         QString::fromStdString(image.native()),
                                         QString::fromStdString(mountPoint.native())});
}

bool unmount(const std::filesystem::path& mountPoint)
{
    return run(QStringLiteral("umount"), {QString::fromStdString(mountPoint.native())});
}

int runAsUser(uid_t uid, const std::function<int()>& fn)
{
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        if (getuid() == 0 && (setgid(uid) != 0 || setuid(uid) != 0))
            _exit(125);
        _exit(fn());
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

} // namespace quillane::test
