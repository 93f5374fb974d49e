#include "DesktopWorkspace.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QProcess>

namespace quillane
{

bool DesktopWorkspace::open(const QUrl& url)
{
    return url.isValid() && QDesktopServices::openUrl(url);
}

Result<qint64> DesktopWorkspace::launch(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    qint64 pid = 0;
    if (!process.startDetached(&pid)) {
        const QString reason = process.errorString();
        return Result<qint64>::failure(
            (program + QStringLiteral(": ") +
             (reason.isEmpty()
                  ? QCoreApplication::translate("quillane::DesktopWorkspace", "could not start")
                  : reason))
                .toStdString());
    }
    return Result<qint64>::success(pid);
}

} // namespace quillane
