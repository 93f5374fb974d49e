#include "ViewHarness.h"

#include <QAccessible>
#include <QWidget>

namespace quillane::test
{

ViewHarness::ViewHarness()
    : updater(std::make_unique<Updater>(
          Updater::Services{helper.alerts,
                            workspace,
                            model.defaults,
                            model.scheduler,
                            BundleInfo::current(),
                            QUrl(QStringLiteral("http://127.0.0.1:9/appcast.xml")),
                            {}}))
{
}

ViewServices ViewHarness::services()
{
    if (!model.observer)
        model.start();
    // A second client would replace the first, which earlier services still point to.
    if (!m_client)
        m_client = &helper.client();
    return ViewServices{*model.observer,
                        *m_client,
                        *updater,
                        model.defaults,
                        helper.alerts,
                        workspace,
                        application,
                        BundleInfo::current(),
                        [this] { ++settingsOpened; }};
}

QString spokenName(QWidget* control)
{
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(control);
    return accessible ? accessible->text(QAccessible::Name) : QString();
}

} // namespace quillane::test
