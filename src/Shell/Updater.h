#pragma once

#include "Platform/BundleInfo.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

namespace quillane
{

class Alerts;
struct AppcastItem;
class RepeatingTimer;
class Scheduler;
class UserDefaults;
class Workspace;

// Checks the project's update feed for a newer build and tells the user what it found. One
// instance lives for the whole application.
//
// One check runs at a time. A check the user asked for shows whatever it finds; a daily check
// shows only a newer version and writes a failure to the console.
class Updater : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(Updater)

public:
    struct Services {
        Alerts& alerts;
        Workspace& workspace; // opens the release page
        UserDefaults& defaults;
        Scheduler& mainQueue;
        BundleInfo bundle;
        QUrl feed; // the appcast's address
        // Whether the package manager installed this copy; asked only when a newer version is
        // offered, since finding out reads the package database.
        std::function<bool()> installedFromPackage;
    };

    explicit Updater(Services services, QObject* parent = nullptr);
    ~Updater() override;

    // At launch: counts launches, asks once (on the second launch) whether to check daily, and
    // starts the daily check when the user agreed. The question waits for the main queue, so
    // that launching finishes first; the first unattended check comes a minute after launch.
    void start();
    // A check the user asked for: its outcome is always shown.
    void checkForUpdates();

Q_SIGNALS:
    // A check ended, with its outcome shown or (for an unattended check with nothing new)
    // left unsaid.
    void checkFinished();

private:
    void check(bool userInitiated);
    void finishCheck(QNetworkReply* reply);
    QString failureOf(QNetworkReply& reply) const;
    void offer(const AppcastItem& item, quint64 ourBuild);
    void askForAutomaticChecks();
    void checkDaily();

    Services m_services;
    QNetworkAccessManager* m_network;
    // From the request until its outcome has been shown: a check asked for meanwhile is the
    // same check.
    bool m_checking = false;
    bool m_userInitiated = false;
    QString m_abortReason; // why the check under way was cut short by us
    std::unique_ptr<RepeatingTimer> m_dailyCheck;
};

} // namespace quillane
