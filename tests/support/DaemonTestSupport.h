#pragma once

#include "PrivateBus.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <filesystem>
#include <sys/types.h>

// What the daemon's end-to-end tests stand on besides a private bus: the real polkitd on it
// answering by the test's own rules, and an unprivileged user to run clients as.
namespace quillane::test
{

// Starts the real daemon (as root, this process's user) on the bus and waits until it serves.
bool startDaemon(ChildProcess& daemon, const PrivateBus& bus, const QString& program,
                 const QStringList& arguments = {});

// polkit's answer for a user (empty: anyone) and an action (empty: each of the daemon's).
struct PolkitRule {
    QString user;
    bool authorized = false;
    QString action = {};
};

// The real polkitd on the bus. Its actions and rules folders are replaced, in this test's
// private mount namespace only, by folders holding the daemon's action file
// (daemon/polkit) and a rules file made from the given rules: the first rule that matches
// answers, and where none does the action's defaults apply.
class ScriptedPolkit
{
public:
    // The daemon's actions, each of which a rule without an action answers.
    static const QStringList actions;

    ScriptedPolkit(const PrivateBus& bus, const QList<PolkitRule>& rules);
    ~ScriptedPolkit();
    ScriptedPolkit(const ScriptedPolkit&) = delete;
    ScriptedPolkit& operator=(const ScriptedPolkit&) = delete;

    // Whether polkitd owns its name on the bus; error() says why not.
    bool isRunning() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }
    // How many times the daemon has asked about the action so far, as the rules saw it.
    int questions(const QString& action) const;

private:
    bool bind(const QString& folder, const QString& target);
    QString logFile() const;

    const PrivateBus& m_bus;
    QTemporaryDir m_dir;
    QStringList m_mounted;
    ChildProcess m_polkitd;
    QString m_error;
};

// An unprivileged user, made if missing (useradd, without a home of its own) and kept for
// later runs: removing it could pull it from under a test running beside this one. Each
// instance gives the user a fresh home folder, which the processes it starts get as HOME.
class TestUser
{
public:
    static const QString defaultName;

    explicit TestUser(const QString& home, const QString& name = defaultName);

    bool isValid() const { return m_uid != 0; }
    QString name() const { return m_name; }
    uid_t uid() const { return m_uid; }
    gid_t gid() const { return m_gid; }
    QString home() const { return m_home; }
    // Starts the program as this user (setpriv) with the test's environment and HOME.
    void start(QProcess& process, const QString& program, const QStringList& arguments) const;
    // Gives the user its home in the password database, where the daemon looks: a copy of
    // it, made in `scratch`, is bound over the real one in this mount namespace only.
    bool listHome(const std::filesystem::path& scratch) const;

private:
    QString m_name;
    QString m_home;
    uid_t m_uid = 0;
    gid_t m_gid = 0;
};

} // namespace quillane::test
