#include "EmptyCommand.h"

#include "App/HelperLink.h"
#include "App/ListCommand.h"
#include "Helper/XPCClient.h"
#include "Model/VolumeObserver.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/BundleInfo.h"
#include "Platform/BusNames.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/DisplayText.h"
#include "Platform/FileSystem.h"
#include "Platform/TrashLocator.h"
#include "Platform/UserDefaults.h"
#include "Platform/linux/CommandSoundPlayer.h"
#include "Platform/linux/LinuxPlatform.h"
#include "Shell/MainThreadStallMeter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QFile>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <sys/statvfs.h>
#include <unistd.h>

namespace quillane
{

namespace
{

// The completion sound plays for 0.9 s; a player that takes much longer than that does not hold
// the exit up any further.
constexpr auto soundBound = std::chrono::milliseconds(1500);

enum ExitCode {
    Completed = 0,
    NotEmptied = 1, // the user said no, or the emptying could not start
    UnknownLocation = 2,
    HelperUnreachable = 3,
    Refused = 4
};

// What the command says goes to standard error, so that its output stays clean.
void say(const QString& text)
{
    std::fputs(qPrintable(text), stderr);
    std::fflush(stderr);
}

void complain(const QString& text)
{
    say(QStringLiteral("quillane: %1\n").arg(text));
}

// Alerts on a terminal: the title and the text on standard error; no one is there to answer,
// so the alert backs out.
class TerminalAlerts final : public Alerts
{
public:
    AlertAnswer runModal(const AlertRequest& request) override
    {
        std::fprintf(stderr, "%s: %s\n", qPrintable(request.title),
                     qPrintable(request.informativeText));
        return {AlertAnswer::firstButton + request.cancelButton, false};
    }
};

class TerminalApplication final : public ApplicationControl
{
public:
    void terminate() override { QCoreApplication::exit(NotEmptied); }
};

// The locations a command-line argument names: the one whose location or trash folder it is,
// else every one of that name.
std::vector<Volume> matching(const std::vector<Volume>& volumes, const QString& location,
                             const VolumeNames& names)
{
    const auto same = [&](const std::optional<std::filesystem::path>& path) {
        return path && (displayPath(*path) == location ||
                        displayPath(*path) + QLatin1Char('/') == location);
    };
    std::vector<Volume> found;
    for (const Volume& volume : volumes) {
        if (same(volume.volPath()) || same(volume.trashURL()))
            return {volume};
        if (displayText(volume.name(names)) == location && volume.trashURL())
            found.push_back(volume);
    }
    return found;
}

// Why a location given on the command line has no trash to empty, as far as can be told.
std::string whyNoTrash(const std::vector<Volume>& volumes, const QString& location,
                       const Platform& platform)
{
    std::optional<std::filesystem::path> place;
    for (const Volume& volume : volumes)
        if (displayText(volume.name(platform.volumeNames)) == location)
            place = volume.volPath();
    if (const std::filesystem::path path = QFile::encodeName(location).toStdString();
        !place && fileExists(path))
        place = path;
    const auto unknown = [] {
        return QCoreApplication::translate("quillane::EmptyCommand",
                                           "it is no location of the list; see quillane list")
            .toStdString();
    };
    if (!place)
        return unknown();
    struct statvfs volume {
    };
    if (statvfs(place->c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY))
        return QCoreApplication::translate("quillane::EmptyCommand",
                                           "it is on a volume mounted read-only, where nothing "
                                           "can be removed")
            .toStdString();
    if (const auto trash = platform.trash.trashFolder(*place); !trash)
        return trash.error();
    return unknown();
}

bool confirmed(const QString& name, int items)
{
    say(QCoreApplication::translate("quillane::EmptyCommand",
                                    "Empty the trash of %1 (%n item(s))? The items cannot be "
                                    "restored. [y/N] ",
                                    nullptr, items)
            .arg(name));
    std::string line;
    if (!std::getline(std::cin, line))
        return false;
    // "y" always agrees, as scripts type it; so does the language's own answer.
    const QString answer = QString::fromLocal8Bit(line).trimmed().toLower();
    //: What agrees to the question that ends in [y/N]: its letter, then the word.
    const QStringList yes = QCoreApplication::translate("quillane::EmptyCommand", "y yes")
                                .toLower()
                                .split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return answer == QStringLiteral("y") || answer == QStringLiteral("yes") || yes.contains(answer);
}

void drawProgress(double fraction)
{
    if (!isatty(STDERR_FILENO))
        return;
    constexpr int width = 30;
    const int filled = static_cast<int>(fraction * width + 0.5);
    std::fprintf(stderr, "\r[%s%s] %3d%%",
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(width - filled), ' ').c_str(),
                 static_cast<int>(fraction * 100 + 0.5));
    std::fflush(stderr);
}

// Whether the daemon answers; the bus starts it if it is registered.
QString helperProblem()
{
    QDBusInterface helper(BusNames::daemonService, BusNames::daemonPath,
                          BusNames::trashHelperInterface, QDBusConnection::systemBus());
    const QDBusMessage reply = helper.call(QStringLiteral("versionWithReply"));
    return reply.type() == QDBusMessage::ErrorMessage ? reply.errorMessage() : QString();
}

} // namespace

int runEmptyCommand(const QString& location, bool yes, bool reportStalls)
{
    LinuxPlatform linux;
    const Platform platform = linux.platform();
    TerminalAlerts alerts;
    TerminalApplication application;
    HelperLink helper(platform.mainQueue, platform.defaults, alerts, application);

    int handedOver = 0;
    QString unreachable;
    CommandSoundPlayer sound(soundBound);
    EmptyingServices emptying;
    if (const auto file = BundleInfo::current().resource("empty trash.aif"))
        emptying.sound.emplace(CompletionSound{sound, *file});
    // The command line shows the list and ends the emptying at once, without the panel's pauses.
    VolumeObserver observer(platform, std::move(emptying), ObserverPace::immediate());
    QObject::connect(&observer, &VolumeObserver::itemNeedsHelper, &observer,
                     [&](const std::filesystem::path& item) {
                         if (handedOver++ == 0)
                             unreachable = helperProblem();
                         if (unreachable.isEmpty()) {
                             helper.client().deleteFile(item);
                             return;
                         }
                         // Not sent: it stays, and the emptying goes on without it.
                         observer.xpcDidFail(
                             item, QCoreApplication::translate("quillane::EmptyCommand",
                                                               "not sent to the helper daemon"));
                     });
    QObject::connect(
        &observer, &VolumeObserver::removalFailed, &observer,
        [](const QString& message) { std::fprintf(stderr, "\n%s\n", qPrintable(message)); });
    helper.reportTo(observer);

    QObject::connect(&observer, &VolumeObserver::progressChanged, &observer,
                     [&] { drawProgress(observer.progress()); });
    QObject::connect(
        &observer, &VolumeObserver::emptyingFinished, &observer, [&](const EmptyingResult& result) {
            const QString name = messageText(result.volume.name(platform.volumeNames));
            if (isatty(STDERR_FILENO) && result.ending == EmptyingResult::Ending::Completed)
                std::fputc('\n', stderr);
            // An emptying that ended before its end says why, and so ends the program.
            const auto endEarly = [](const QString& message, int code) {
                complain(message);
                QCoreApplication::exit(code);
            };
            switch (result.ending) {
            case EmptyingResult::Ending::NotStarted:
                return endEarly(QCoreApplication::translate("quillane::EmptyCommand",
                                                            "the trash of %1 was not emptied: %2")
                                    .arg(name, result.error),
                                NotEmptied);
            case EmptyingResult::Ending::Stopped:
                std::fputc('\n', stderr);
                return endEarly(QCoreApplication::translate("quillane::EmptyCommand",
                                                            "emptying the trash of %1 stopped: %2")
                                    .arg(name, result.error),
                                NotEmptied);
            case EmptyingResult::Ending::NothingToRemove:
                return endEarly(
                    QCoreApplication::translate("quillane::EmptyCommand",
                                                "the trash of %1 holds nothing to remove")
                        .arg(name),
                    Completed);
            case EmptyingResult::Ending::Completed:
                break;
            }
            for (const QString& problem : result.problems)
                complain(problem);
            for (const auto& [item, reason] : result.refused)
                complain(QCoreApplication::translate("quillane::EmptyCommand", "%1 stayed: %2")
                             .arg(messagePath(item), reason));
            int code = Completed;
            if (result.helperStoppedAnswering) {
                complain(QCoreApplication::translate("quillane::EmptyCommand",
                                                     "the helper daemon stopped answering"));
                code = HelperUnreachable;
            } else if (!unreachable.isEmpty()) {
                complain(QCoreApplication::translate("quillane::EmptyCommand",
                                                     "%n item(s) need the helper daemon, which "
                                                     "is not reachable: %1",
                                                     nullptr, handedOver)
                             .arg(unreachable));
                code = HelperUnreachable;
            } else if (!result.refused.empty()) {
                complain(QCoreApplication::translate("quillane::EmptyCommand",
                                                     "the helper daemon did not remove %n "
                                                     "item(s)",
                                                     nullptr, int(result.refused.size())));
                code = Refused;
            }
            // The sound has just started: let it finish before the program does.
            sound.whenFinished([code] { QCoreApplication::exit(code); });
        });

    whenFirstListed(observer, [&] {
        const auto candidates = matching(observer.volumes(), location, platform.volumeNames);
        if (candidates.size() > 1) {
            complain(QCoreApplication::translate("quillane::EmptyCommand",
                                                 "\"%1\" names %n locations; say which by its "
                                                 "location or trash folder:",
                                                 nullptr, int(candidates.size()))
                         .arg(messageText(location.toStdString())));
            for (const Volume& candidate : candidates)
                std::fprintf(stderr, "  %s\n", qPrintable(messagePath(*candidate.trashURL())));
            QCoreApplication::exit(UnknownLocation);
            return;
        }
        const auto volume = candidates.begin();
        if (volume == candidates.end() || !volume->trashURL()) {
            complain(QCoreApplication::translate("quillane::EmptyCommand", "no trash at \"%1\": %2")
                         .arg(messageText(location.toStdString()),
                              messageText(whyNoTrash(observer.volumes(), location, platform))));
            QCoreApplication::exit(UnknownLocation);
            return;
        }
        platform.defaults.synchronize();
        const bool ask = !yes && !platform.defaults.boolValue(Constant::deleteCheckSupressionKey);
        if (ask &&
            !confirmed(messageText(volume->name(platform.volumeNames)), volume->itemCount())) {
            complain(QCoreApplication::translate("quillane::EmptyCommand", "nothing was removed"));
            QCoreApplication::exit(NotEmptied);
            return;
        }
        const Volume chosen = *volume;
        observer.emptySelectedTrash(chosen);
    });
    std::unique_ptr<MainThreadStallMeter> stalls;
    if (reportStalls) {
        stalls = std::make_unique<MainThreadStallMeter>();
        stalls->start();
    }
    const int code = QCoreApplication::exec();
    if (stalls)
        std::fprintf(stderr, "%s\n", qPrintable(stalls->report()));
    return code;
}

} // namespace quillane
