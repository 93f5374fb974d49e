#include "RunningInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>
#include <unistd.h>

namespace quillane
{

namespace
{

const QByteArray showRequest = QByteArrayLiteral("show\n");
constexpr int answerTimeoutMs = 2000;

} // namespace

RunningInstance::RunningInstance(QString socketName, QObject* parent)
    : QObject(parent), m_socketName(std::move(socketName))
{
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (!socket->canReadLine())
                    return;
                if (socket->readLine() == showRequest) {
                    socket->write("ok\n");
                    socket->flush();
                    Q_EMIT showRequested();
                }
                socket->disconnectFromServer();
            });
        }
    });
}

RunningInstance::Answer RunningInstance::askRunningToShow()
{
    QLocalSocket socket;
    socket.connectToServer(m_socketName);
    if (!socket.waitForConnected(answerTimeoutMs)) {
        const auto error = socket.error();
        return error == QLocalSocket::ServerNotFoundError ||
                       error == QLocalSocket::ConnectionRefusedError
                   ? Answer::NoInstance
                   : Answer::NoAnswer;
    }
    socket.write(showRequest);
    if (!socket.waitForBytesWritten(answerTimeoutMs))
        return Answer::NoAnswer;
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(answerTimeoutMs))
            return Answer::NoAnswer;
    }
    return socket.readLine() == "ok\n" ? Answer::Shown : Answer::NoAnswer;
}

bool RunningInstance::listen()
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (m_server.listen(m_socketName))
        return true;
    // A socket file left by an instance that ended without tidying up: no one answers on it.
    if (m_server.serverError() == QAbstractSocket::AddressInUseError &&
        askRunningToShow() == Answer::NoInstance) {
        QLocalServer::removeServer(m_socketName);
        return m_server.listen(m_socketName);
    }
    return false;
}

QString RunningInstance::defaultSocketName()
{
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty())
        return QDir(runtime).filePath(QStringLiteral("quillane.socket"));
    return QStringLiteral("quillane-%1").arg(getuid());
}

} // namespace quillane
