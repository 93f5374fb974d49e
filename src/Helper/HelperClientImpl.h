#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>

namespace quillane
{

class Scheduler;

// What the daemon calls back on the application's connection: progress, versions and the
// outcome of each removal. A new one is exported for every connection.
class HelperClientImpl : public QObject
{
    Q_OBJECT

public:
    explicit HelperClientImpl(Scheduler& mainQueue, QObject* parent = nullptr);

    // Absent values arrive as empty lists.
    void installationDidReachProgress(double progress, const QStringList& description);
    void postVersion(const QStringList& version);
    void deleteResultWithUrl(const QByteArray& url, const QStringList& error);

Q_SIGNALS:
    // Each told on a later turn of the main loop than the call that brought it.
    void versionPosted(const QString& version);
    void deleted(const QByteArray& url);
    void deleteFailed(const QByteArray& url, const QString& reason);

private:
    Scheduler& m_mainQueue;
};

} // namespace quillane
