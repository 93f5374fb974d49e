#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace quillane
{

// One tray application per user: the first one listens on a local socket, and a later launch
// asks it to bring its panel forward instead of starting a second one.
class RunningInstance : public QObject
{
    Q_OBJECT

public:
    explicit RunningInstance(QString socketName = defaultSocketName(), QObject* parent = nullptr);

    enum class Answer {
        Shown,      // an instance runs and came forward
        NoInstance, // nobody listens
        NoAnswer,   // an instance listens but did not answer in time (still starting, or stuck)
    };

    // Asks an instance that already runs to come forward.
    Answer askRunningToShow();
    // Starts listening; false, with the reason in error(), when it cannot.
    bool listen();
    QString error() const { return m_server.errorString(); }

    // In the user's runtime folder when there is one, else a per-user name in the temporary
    // folder.
    static QString defaultSocketName();

Q_SIGNALS:
    // A later launch asked this instance to come forward.
    void showRequested();

private:
    QString m_socketName;
    QLocalServer m_server;
};

} // namespace quillane
