#pragma once

#include <QByteArray>
#include <QDBusContext>
#include <QObject>
#include <QStringList>

// A scripted stand-in for the privileged helper daemon, driven by command-line switches; it
// prints every call it receives as a line "call NAME" on standard output.
class TestHelperDaemon : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    struct Script {
        QStringList version;        // the reply to versionWithReply; empty: absent
        bool silent = false;        // never answer versionWithReply
        QStringList status;         // the reply to replyStatusWithReply
        QStringList uninstallReply; // the reply to uninstall
        QStringList deleteError;    // the error reported for deleteFile; empty: removed
        bool exitOnDelete = false;  // vanish instead of reporting a removal
        QStringList postVersion;    // posted back to the caller on each versionWithReply
        bool noBatches = false;     // refuse deleteFiles as a daemon without it would
    };

    explicit TestHelperDaemon(Script script) : m_script(std::move(script)) {}

    void install();
    QStringList uninstall(const QStringList& userName, const QStringList& appPath);
    void stop();
    QStringList replyStatusWithReply();
    QStringList versionWithReply();
    void deleteFile(const QByteArray& url);
    void deleteFiles(const QByteArrayList& urls);
    QStringList repairHomeTrash() { return {QStringLiteral("not scripted")}; }

private:
    Script m_script;
};
