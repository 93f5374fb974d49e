#include "Updater.h"

#include "Appcast.h"
#include "Platform/Alerts.h"
#include "Platform/Console.h"
#include "Platform/Scheduler.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <chrono>

namespace quillane
{

namespace
{

// The stored flags: the launch count (only "not the first" matters) and the daily check.
const QString launchedBeforeKey = QStringLiteral("UpdateLaunchedBefore");
const QString askedForAutomaticChecksKey = QStringLiteral("UpdateAskedForAutomaticChecks");
const QString automaticChecksKey = QStringLiteral("UpdateAutomaticChecks");

constexpr std::chrono::hours checkInterval(24);
// The first unattended check waits until the desktop has settled after login.
constexpr std::chrono::minutes firstCheckDelay(1);
constexpr std::chrono::seconds requestTimeout(15);
// A feed lists a few releases; anything far larger is not our feed.
constexpr qint64 largestFeed = 1024 * 1024;

// Everything the update checker says.
namespace Text
{

constexpr std::string_view consoleFailure = "Update Check Error: ";

// "1.4 (57)", or the build alone when there is no other version to show.
QString version(const QString& shortVersion, quint64 build)
{
    const QString shown = shortVersion.trimmed();
    const QString number = QString::number(build);
    if (shown.isEmpty() || shown == number)
        return number;
    return QStringLiteral("%1 (%2)").arg(shown, number);
}

// Failures read as a sentence after "could not be made.".
QString sentence(QString reason)
{
    reason = reason.trimmed();
    if (!reason.isEmpty() && !reason.endsWith(u'.') && !reason.endsWith(u'!'))
        reason += u'.';
    return reason;
}

AlertRequest upToDate(const QString& ours)
{
    return {Updater::tr("You’re up to date!"),
            Updater::tr("Quillane %1 is the newest version available.").arg(ours),
            {Updater::tr("OK")},
            false,
            {}};
}

AlertRequest newVersion(const QString& theirs, const QString& ours, bool fromPackage,
                        bool hasReleasePage)
{
    QString text = Updater::tr("Quillane %1 is now available; you have %2.").arg(theirs, ours);
    if (fromPackage)
        text += Updater::tr(" Install it with your package manager, as Quillane was installed "
                            "from a package.");
    else if (hasReleasePage)
        text += Updater::tr(" Would you like to see what is new and download it?");
    const QStringList buttons = hasReleasePage
                                    ? QStringList{Updater::tr("View Release"), Updater::tr("Later")}
                                    : QStringList{Updater::tr("OK")};
    return {Updater::tr("A new version of Quillane is available!"),
            text,
            buttons,
            false,
            {},
            /*cancelButton=*/int(buttons.size()) - 1};
}

AlertRequest failed(const QString& reason)
{
    return {Updater::tr("Update Check Failed"),
            Updater::tr("The check for updates could not be made. %1").arg(sentence(reason)),
            {Updater::tr("OK")},
            false,
            {}};
}

AlertRequest automaticChecksQuestion()
{
    return {Updater::tr("Check for updates automatically?"),
            Updater::tr("Quillane can look for a newer version once a day and tell you when "
                        "there is one. You can still check at any time from its menu."),
            {Updater::tr("Check Automatically"), Updater::tr("Don’t Check")},
            false,
            {},
            /*cancelButton=*/1};
}

QString httpStatus(int code, const QString& phrase)
{
    if (phrase.isEmpty())
        return Updater::tr("The update server answered with HTTP status %1.").arg(code);
    return Updater::tr("The update server answered with HTTP status %1 (%2).")
        .arg(code)
        .arg(phrase);
}

QString noAnswer()
{
    return Updater::tr("The update server did not answer within %1 seconds.")
        .arg(requestTimeout.count());
}

QString tooLarge()
{
    return Updater::tr("The update feed is larger than %1 KB, far larger than any feed of "
                       "ours.")
        .arg(largestFeed / 1024);
}

QString unknownOwnBuild()
{
    return Updater::tr("This copy of Quillane does not know its own build number.");
}

} // namespace Text

} // namespace

Updater::Updater(Services services, QObject* parent)
    : QObject(parent), m_services(std::move(services)), m_network(new QNetworkAccessManager(this))
{
}

Updater::~Updater() = default;

void Updater::start()
{
    UserDefaults& defaults = m_services.defaults;
    if (!defaults.boolValue(launchedBeforeKey)) {
        defaults.setBool(launchedBeforeKey, true);
        return;
    }
    if (!defaults.boolValue(askedForAutomaticChecksKey)) {
        QPointer<Updater> self(this);
        m_services.mainQueue.post([self] {
            if (self)
                self->askForAutomaticChecks();
        });
        return;
    }
    if (defaults.boolValue(automaticChecksKey))
        checkDaily();
}

void Updater::checkForUpdates()
{
    check(true);
}

void Updater::askForAutomaticChecks()
{
    UserDefaults& defaults = m_services.defaults;
    defaults.setBool(askedForAutomaticChecksKey, true);
    const bool agreed = m_services.alerts.runModal(Text::automaticChecksQuestion()).button ==
                        AlertAnswer::firstButton;
    defaults.setBool(automaticChecksKey, agreed);
    if (agreed)
        checkDaily();
}

void Updater::checkDaily()
{
    // Soon after each launch, then once a day: a user who logs out every evening still gets
    // the checks they agreed to.
    QPointer<Updater> self(this);
    m_services.mainQueue.postAfter(firstCheckDelay, [self] {
        if (!self)
            return;
        self->check(false);
        self->m_dailyCheck =
            self->m_services.mainQueue.repeat(checkInterval, [self] { self->check(false); });
    });
}

void Updater::check(bool userInitiated)
{
    if (m_checking) {
        // The user asking during a daily check gets its outcome.
        m_userInitiated = m_userInitiated || userInitiated;
        return;
    }
    m_checking = true;
    m_userInitiated = userInitiated;
    m_abortReason.clear();

    QNetworkRequest request(m_services.feed);
    request.setTransferTimeout(static_cast<int>(std::chrono::milliseconds(requestTimeout).count()));
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Quillane/%1").arg(m_services.bundle.shortVersion));
    QNetworkReply* reply = m_network->get(request);
    connect(reply, &QNetworkReply::downloadProgress, this, [this, reply](qint64 received, qint64) {
        if (received > largestFeed && m_abortReason.isEmpty()) {
            m_abortReason = Text::tooLarge();
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { finishCheck(reply); });
}

QString Updater::failureOf(QNetworkReply& reply) const
{
    if (!m_abortReason.isEmpty())
        return m_abortReason;
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && (status.toInt() < 200 || status.toInt() > 299))
        return Text::httpStatus(
            status.toInt(),
            reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString().trimmed());
    switch (reply.error()) {
    case QNetworkReply::NoError:
        return {};
    case QNetworkReply::OperationCanceledError: // what the transfer timeout ends a request with
    case QNetworkReply::TimeoutError:
        return Text::noAnswer();
    default:
        return reply.errorString();
    }
}

void Updater::finishCheck(QNetworkReply* reply)
{
    reply->deleteLater();
    const bool shown = m_userInitiated;
    const auto fail = [&](const QString& reason) {
        if (shown)
            m_services.alerts.runModal(Text::failed(reason));
        else
            Console::writeLine(Text::consoleFailure, reason.toStdString());
    };

    const QString failure = failureOf(*reply);
    const Result<AppcastItem> newest = failure.isEmpty()
                                           ? newestAppcastItem(reply->readAll())
                                           : Result<AppcastItem>::failure(failure.toStdString());
    const std::optional<quint64> ours =
        buildNumber(m_services.bundle.buildVersion.value_or(QString()));
    if (!newest)
        fail(QString::fromStdString(newest.error()));
    else if (!ours)
        fail(Text::unknownOwnBuild());
    else if (newest->build > *ours)
        offer(*newest, *ours);
    else if (shown)
        m_services.alerts.runModal(
            Text::upToDate(Text::version(m_services.bundle.shortVersion, *ours)));

    m_checking = false;
    m_userInitiated = false;
    Q_EMIT checkFinished();
}

void Updater::offer(const AppcastItem& item, quint64 ourBuild)
{
    const QString ours = Text::version(m_services.bundle.shortVersion, ourBuild);
    const QString theirs = Text::version(item.shortVersion, item.build);
    const bool hasReleasePage = !item.releasePage.isEmpty();
    const AlertAnswer answer = m_services.alerts.runModal(Text::newVersion(
        theirs, ours, m_services.installedFromPackage && m_services.installedFromPackage(),
        hasReleasePage));
    if (hasReleasePage && answer.button == AlertAnswer::firstButton)
        m_services.workspace.open(item.releasePage);
}

} // namespace quillane
