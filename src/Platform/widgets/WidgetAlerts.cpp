#include "WidgetAlerts.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPushButton>
#include <algorithm>
#include <vector>

namespace quillane
{

namespace
{

// Presses a button when its key is typed anywhere in the alert, without modifiers: the key of
// the alert's own choosing, beside Return for the first button.
class KeyPress final : public QObject
{
public:
    KeyPress(QString key, QAbstractButton* button) : m_key(std::move(key)), m_button(button) {}

    // Sees the keys of every widget, so that it works wherever the focus is in the alert.
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* widget = qobject_cast<QWidget*>(watched);
        if (m_button && !m_key.isEmpty() && event->type() == QEvent::ShortcutOverride && widget &&
            widget->window() == m_button->window()) {
            auto* key = static_cast<QKeyEvent*>(event);
            if ((key->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier &&
                key->text().compare(m_key, Qt::CaseInsensitive) == 0) {
                m_button->click();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QString m_key;
    QAbstractButton* m_button;
};

} // namespace

QString WidgetAlerts::suppressionLabel()
{
    return QCoreApplication::translate("quillane::WidgetAlerts", "Do not show this message again");
}

AlertAnswer WidgetAlerts::runModal(const AlertRequest& request)
{
    QMessageBox box;
    box.setWindowTitle(request.title);
    box.setText(request.title);
    box.setInformativeText(request.informativeText);

    // Each button takes the role of what it does, so that the platform's layout places it where
    // its users look for it; the one that backs out also answers Escape and the close button.
    std::vector<QPushButton*> buttons;
    for (const QString& title : request.buttons) {
        const int index = int(buttons.size());
        const auto role = index == request.cancelButton        ? QMessageBox::RejectRole
                          : index == request.destructiveButton ? QMessageBox::DestructiveRole
                                                               : QMessageBox::AcceptRole;
        buttons.push_back(box.addButton(title, role));
    }
    if (!buttons.empty()) {
        box.setDefaultButton(buttons.front());
        box.setEscapeButton(
            buttons.at(std::size_t(std::clamp(request.cancelButton, 0, int(buttons.size()) - 1))));
    }

    KeyPress secondKey(request.secondButtonKey, buttons.size() > 1 ? buttons[1] : nullptr);
    QCoreApplication::instance()->installEventFilter(&secondKey);
    if (request.showsSuppressionButton)
        box.setCheckBox(new QCheckBox(suppressionLabel())); // the box owns it

    box.exec();

    AlertAnswer answer;
    const auto clicked = std::ranges::find(buttons, box.clickedButton());
    const auto chosen = clicked != buttons.end()
                            ? clicked - buttons.begin()
                            : std::ranges::find(buttons, box.escapeButton()) - buttons.begin();
    answer.button = AlertAnswer::firstButton + int(chosen);
    answer.suppressed = box.checkBox() && box.checkBox()->isChecked();
    return answer;
}

} // namespace quillane
