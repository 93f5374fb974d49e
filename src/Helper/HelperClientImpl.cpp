#include "HelperClientImpl.h"

#include "Platform/Constant.h"
#include "Platform/NotificationCenter.h"
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
    NotificationCenter::defaultCenter().post(
        {Constant::helperVersionUpdatedName, {}, {{Constant::helperVersionKey, version.first()}}});
}

void HelperClientImpl::deleteResultWithUrl(const QByteArray& url, const QStringList& error)
{
    const std::string location = url.toStdString();
    if (!error.isEmpty()) {
        SystemLog::write("URL: " + location + ", Error " + error.first().toStdString());
        // Not counted as removed; told to whoever waits on the outcome (the command line).
        m_mainQueue.post([url, reason = error.first()] {
            NotificationCenter::defaultCenter().post({Constant::xpcDeleteFailedName,
                                                      QVariant(url),
                                                      {{Constant::deleteErrorKey, reason}}});
        });
        return;
    }
    SystemLog::write("URL: " + location + ", Removed");
    m_mainQueue.post([url] {
        NotificationCenter::defaultCenter().post({Constant::xpcDeleteName, QVariant(url), {}});
    });
}

} // namespace quillane
