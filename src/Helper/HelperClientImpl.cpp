#include "HelperClientImpl.h"

#include "Platform/Scheduler.h"
#include "Platform/SystemLog.h"

namespace quillane
{

HelperClientImpl::HelperClientImpl(Scheduler& mainQueue, QObject* parent)
    : QObject(parent), m_mainQueue(mainQueue)
{
}

void HelperClientImpl::installationDidReachProgress(double, const QStringList&)
{
    SystemLog::write("[QuillaneClient]: installationDidReachProgress(_:description:)");
}

void HelperClientImpl::postVersion(const QStringList& version)
{
    if (version.isEmpty())
        return;
    m_mainQueue.post(this, [this, version = version.first()] { Q_EMIT versionPosted(version); });
}

void HelperClientImpl::deleteResultWithUrl(const QByteArray& url, const QStringList& error)
{
    const std::string location = url.toStdString();
    if (!error.isEmpty()) {
        SystemLog::write("URL: " + location + ", Error " + error.first().toStdString());
        m_mainQueue.post(this,
                         [this, url, reason = error.first()] { Q_EMIT deleteFailed(url, reason); });
        return;
    }
    SystemLog::write("URL: " + location + ", Removed");
    m_mainQueue.post(this, [this, url] { Q_EMIT deleted(url); });
}

} // namespace quillane
