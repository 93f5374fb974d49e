#include "HelperLink.h"

#include "Helper/VLAppService.h"
#include "Helper/XPCClient.h"
#include "Model/VolumeObserver.h"
#include "Platform/BundleInfo.h"
#include "Platform/QtScheduler.h"
#include "Platform/linux/AutostartEntry.h"
#include "Platform/linux/DesktopLoginItemsSettings.h"
#include "Platform/linux/PackageKitManager.h"
#include "Platform/linux/PackageOrigin.h"
#include "Platform/linux/SystemdUnitService.h"

namespace quillane
{

HelperLink::HelperLink(Scheduler& mainQueue, UserDefaults& defaults, Alerts& alerts,
                       ApplicationControl& application, QDBusConnection bus)
    : m_registrationQueue(std::make_unique<ThreadWorkQueue>()),
      m_loginItemsSettings(
          std::make_unique<DesktopLoginItemsSettings>(DesktopLoginItemsSettings::fromEnvironment()))
{
    const BundleInfo bundle = BundleInfo::current();
    m_appService = std::make_unique<VLAppService>(
        std::make_unique<SystemdUnitService>(bus),
        std::make_unique<AutostartEntry>(AutostartEntry::configHomeFromEnvironment(),
                                         bundle.executablePath.value_or("quillane")),
        *m_loginItemsSettings, *m_registrationQueue, mainQueue);
    std::optional<QString> package;
    if (bundle.executablePath)
        if (const auto name = owningPackage(*bundle.executablePath))
            package = QString::fromStdString(*name);
    m_packageManager = std::make_unique<PackageKitManager>(bus);
    m_client = std::make_unique<XPCClient>(
        XPCClient::Services{bus, mainQueue, *m_appService, defaults, alerts, application, bundle,
                            package, m_packageManager.get()});
}

HelperLink::~HelperLink()
{
    m_client.reset();
    m_registrationQueue.reset(); // a registration in flight finishes first
}

void HelperLink::reportTo(VolumeObserver& observer)
{
    QObject::connect(m_client.get(), &XPCClient::xpcDidDelete, &observer,
                     &VolumeObserver::xpcDidDelete);
    QObject::connect(m_client.get(), &XPCClient::xpcDeleteFailed, &observer,
                     &VolumeObserver::xpcDidFail);
    QObject::connect(m_client.get(), &XPCClient::helperLeft, &observer,
                     &VolumeObserver::helperLeft);
}

} // namespace quillane
