#pragma once

#include "Platform/BundleInfo.h"

#include <QObject>
#include <QUrl>

namespace quillane
{

class Alerts;
class Scheduler;
class UserDefaults;
class Workspace;

// Checks the project's update feed for a newer build and tells the user what it found. One
// instance lives for the whole application.
class Updater : public QObject
{
    Q_OBJECT

public:
    struct Services {
        Alerts& alerts;
        Workspace& workspace; // opens the release page
        UserDefaults& defaults;
        Scheduler& mainQueue;
        BundleInfo bundle;
        QUrl feed; // the appcast's address
        bool installedFromPackage = false;
    };

    explicit Updater(Services services, QObject* parent = nullptr);
    ~Updater() override;

    // At launch: counts launches, asks once (on the second launch) whether to check daily, and
    // starts the daily check when the user agreed.
    void start();
    // A check the user asked for: its outcome is always shown.
    void checkForUpdates();

Q_SIGNALS:
    // A check ended, with its outcome shown or (for an unattended check with nothing new)
    // left unsaid.
    void checkFinished();
};

} // namespace quillane
