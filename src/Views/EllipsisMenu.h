#pragma once

#include "ViewServices.h"

#include <QPointer>
#include <QString>
#include <QToolButton>
#include <QUrl>

class QLabel;
class QMessageBox;

namespace quillane
{

// The panel's menu of application commands behind an ellipsis button: the helper's state,
// About, Check for Updates, Settings, Contact Support, Uninstall and Quit.
class EllipsisMenu : public QToolButton
{
    Q_OBJECT
    Q_DISABLE_COPY(EllipsisMenu)

public:
    explicit EllipsisMenu(const ViewServices& services, QWidget* parent = nullptr);
    ~EllipsisMenu() override;

    // "Helper not running" until the helper's build is known, then the build.
    QString helperInfoString() const;
    // What the About box says: the name, the version and the build.
    static QString aboutText(const BundleInfo& bundle);
    // A new message to the support address, its subject and body encoded for a URL query.
    static QUrl supportMailUrl();

    void showAbout();
    void checkForUpdates();
    void openSettings();
    void contactSupport();
    void uninstallApp();
    void quitTrash();

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateHelperInfo();
    // The symbol in the palette's button text colour, so that it shows in light and dark styles.
    void updateSymbol();

    ViewServices m_services;
    QLabel* m_helperInfo;
    QPointer<QMessageBox> m_about;
};

} // namespace quillane
