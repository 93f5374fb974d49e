#include "DaemonTestSupport.h"

#include "Platform/BusNames.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <cerrno>
#include <cstring>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane::test
{

namespace
{

const QString polkitd = QStringLiteral("/usr/lib/polkit-1/polkitd");
constexpr int startTimeoutMs = 10000;
constexpr QFile::Permissions readableByAll =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
constexpr QFile::Permissions enterableByAll =
    readableByAll | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;

// One test per rule, in order: the first rule that matches answers.
QString rulesScript(const QList<PolkitRule>& rules)
{
    // Every question is logged first, for the tests that count them.
    QString script = QStringLiteral("polkit.addRule(function(action, subject) {\n"
                                    "    polkit.log(\"quillane-test question \" + action.id);\n");
    for (const PolkitRule& rule : rules) {
        QStringList conditions;
        if (!rule.user.isEmpty())
            conditions << QStringLiteral("subject.user == \"%1\"").arg(rule.user);
        const QStringList ids =
            rule.action.isEmpty() ? ScriptedPolkit::actions : QStringList{rule.action};
        conditions << QStringLiteral("[\"%1\"].indexOf(action.id) >= 0")
                          .arg(ids.join(QStringLiteral("\", \"")));
        script += QStringLiteral("    if (%1)\n        return polkit.Result.%2;\n")
                      .arg(conditions.join(QStringLiteral(" && ")),
                           rule.authorized ? QStringLiteral("YES") : QStringLiteral("NO"));
    }
    return script + QStringLiteral("    return polkit.Result.NOT_HANDLED;\n});\n");
}

bool writeReadable(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() &&
           file.setPermissions(readableByAll);
}

} // namespace

const QStringList ScriptedPolkit::actions = {
    BusNames::deleteItemAction, BusNames::repairTrashAction, BusNames::uninstallAction};

ScriptedPolkit::ScriptedPolkit(const PrivateBus& bus, const QList<PolkitRule>& rules) : m_bus(bus)
{
    // Bind mounts outside a private namespace would change the machine's own polkit.
    if (!canMount()) {
        m_error = QStringLiteral("needs root in a private mount namespace");
        return;
    }
    if (!QFileInfo(polkitd).isExecutable()) {
        m_error = polkitd + QStringLiteral(" is missing (package polkitd)");
        return;
    }
    // polkitd reads its folders as the polkitd user once it has dropped root.
    const QString actionsFolder = m_dir.filePath(QStringLiteral("actions"));
    const QString rulesFolder = m_dir.filePath(QStringLiteral("rules.d"));
    const QString noRulesFolder = m_dir.filePath(QStringLiteral("no-rules.d"));
    for (const QString& folder : {actionsFolder, rulesFolder, noRulesFolder}) {
        if (!QDir().mkpath(folder) || !QFile::setPermissions(folder, enterableByAll)) {
            m_error = QStringLiteral("cannot make ") + folder;
            return;
        }
    }
    QFile actionSource(QStringLiteral(QUILLANE_POLKIT_ACTIONS));
    if (!actionSource.open(QIODevice::ReadOnly) ||
        !writeReadable(actionsFolder + u'/' + BusNames::polkitActionsFile,
                       actionSource.readAll()) ||
        !writeReadable(rulesFolder + QStringLiteral("/50-quillane-test.rules"),
                       rulesScript(rules).toUtf8())) {
        m_error = QStringLiteral("cannot copy %1 and write the rules").arg(actionSource.fileName());
        return;
    }
    if (!bind(actionsFolder, QStringLiteral("/usr/share/polkit-1/actions")) ||
        !bind(rulesFolder, QStringLiteral("/usr/share/polkit-1/rules.d")) ||
        !bind(noRulesFolder, QStringLiteral("/etc/polkit-1/rules.d")))
        return;

    // Dropping to its own user clears its death signal; polkitd then ends with the bus.
    // What it says goes to a file: the rules' log of each question (which --no-debug would
    // silence) is counted from there, and a pipe nobody reads could fill and stop it.
    m_polkitd.setStandardOutputFile(logFile());
    m_polkitd.setStandardErrorFile(logFile(), QIODevice::Append);
    m_polkitd.start(polkitd);
    const bool settled = QTest::qWaitFor(
        [&] {
            return m_polkitd.state() == QProcess::NotRunning ||
                   bus.hasOwner(BusNames::polkitService);
        },
        startTimeoutMs);
    if (!settled || !bus.hasOwner(BusNames::polkitService))
        m_error = QStringLiteral("polkitd did not take its name: ") + logFile();
}

QString ScriptedPolkit::logFile() const
{
    return m_dir.filePath(QStringLiteral("polkitd.log"));
}

int ScriptedPolkit::questions(const QString& action) const
{
    QFile log(logFile());
    if (!log.open(QIODevice::ReadOnly))
        return 0;
    return static_cast<int>(
        log.readAll().count(QStringLiteral("quillane-test question %1").arg(action).toUtf8()));
}

ScriptedPolkit::~ScriptedPolkit()
{
    if (m_polkitd.state() != QProcess::NotRunning) {
        m_polkitd.kill();
        m_polkitd.waitForFinished();
        // The next authority on this bus must not mistake this one's name for its own.
        if (!QTest::qWaitFor([&] { return !m_bus.hasOwner(BusNames::polkitService); },
                             startTimeoutMs))
            qWarning("polkitd's name outlived it");
    }
    for (auto target = m_mounted.crbegin(); target != m_mounted.crend(); ++target)
        ::umount2(QFile::encodeName(*target).constData(), MNT_DETACH);
}

bool ScriptedPolkit::bind(const QString& folder, const QString& target)
{
    if (::mount(QFile::encodeName(folder).constData(), QFile::encodeName(target).constData(),
                nullptr, MS_BIND, nullptr) != 0) {
        m_error = QStringLiteral("cannot bind %1 over %2: %3")
                      .arg(folder, target, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    m_mounted << target;
    return true;
}

const QString TestUser::defaultName = QStringLiteral("quillane-test");

TestUser::TestUser(const QString& home, const QString& name) : m_name(name), m_home(home)
{
    const auto lookUp = [this] {
        if (const passwd* entry = ::getpwnam(QFile::encodeName(m_name).constData())) {
            m_uid = entry->pw_uid;
            m_gid = entry->pw_gid;
        }
        return isValid();
    };
    // A test beside this one may make the user at the same time: then its useradd fails and
    // the second lookup finds the user all the same.
    if (!lookUp() && ::getuid() == 0) {
        run(QStringLiteral("useradd"),
            {QStringLiteral("--no-create-home"), QStringLiteral("--home-dir"),
             QStringLiteral("/nonexistent"), QStringLiteral("--shell"),
             QStringLiteral("/usr/sbin/nologin"), m_name});
        lookUp();
    }
    if (isValid() && (!QDir().mkpath(m_home) ||
                      ::chown(QFile::encodeName(m_home).constData(), m_uid, m_gid) != 0))
        m_uid = 0;
}

bool TestUser::listHome(const std::filesystem::path& scratch) const
{
    QFile passwd(QStringLiteral("/etc/passwd"));
    if (!passwd.open(QIODevice::ReadOnly))
        return false;
    QByteArrayList lines = passwd.readAll().split('\n');
    for (QByteArray& line : lines) {
        QByteArrayList fields = line.split(':');
        if (fields.size() == 7 && fields[0] == m_name.toUtf8()) {
            fields[5] = QFile::encodeName(m_home);
            line = fields.join(':');
        }
    }
    const std::filesystem::path copy = scratch / "passwd";
    writeFile(copy, lines.join('\n').toStdString());
    chmod(copy.c_str(), 0644);
    return mount(copy.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0;
}

void TestUser::start(QProcess& process, const QString& program, const QStringList& arguments) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_home);
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(m_home);
    // setpriv sets the death signal again after changing user, which clears it.
    dieWithParent(process);
    process.start(QStringLiteral("setpriv"),
                  QStringList{QStringLiteral("--reuid"), QString::number(m_uid),
                              QStringLiteral("--regid"), QString::number(m_gid),
                              QStringLiteral("--init-groups"), QStringLiteral("--pdeathsig"),
                              QStringLiteral("KILL"), QStringLiteral("--"), program} +
                      arguments);
}

bool startDaemon(ChildProcess& daemon, const PrivateBus& bus, const QString& program,
                 const QStringList& arguments)
{
    daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    daemon.start(program, arguments);
    return daemon.waitForStarted() &&
           QTest::qWaitFor([&] { return bus.hasOwner(BusNames::daemonService); }, 10000);
}

} // namespace quillane::test
