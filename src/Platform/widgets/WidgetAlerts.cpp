#include "WidgetAlerts.h"

#include <QCheckBox>
#include <QKeySequence>
#include <QMessageBox>
#include <QPushButton>
#include <vector>

namespace quillane
{

const QString WidgetAlerts::suppressionLabel = QStringLiteral("Do not show this message again");

AlertAnswer WidgetAlerts::runModal(const AlertRequest& request)
{
    QMessageBox box;
    box.setWindowTitle(request.title);
    box.setText(request.title);
    box.setInformativeText(request.informativeText);

    // The first button is the one the alert is about; a second one backs out, so it also
    // answers Escape and the window's close button. The platform's button layout places them.
    std::vector<QPushButton*> buttons;
    for (const QString& title : request.buttons) {
        const auto role = buttons.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        buttons.push_back(box.addButton(title, role));
    }
    if (!buttons.empty())
        box.setDefaultButton(buttons.front());

    if (buttons.size() > 1 && !request.secondButtonKey.isEmpty())
        buttons[1]->setShortcut(QKeySequence(request.secondButtonKey));
    if (request.showsSuppressionButton)
        box.setCheckBox(new QCheckBox(suppressionLabel)); // the box owns it

    box.exec();

    AlertAnswer answer;
    for (std::size_t i = 0; i < buttons.size(); ++i) {
        if (box.clickedButton() == buttons[i])
            answer.button = AlertAnswer::firstButton + int(i);
    }
    answer.suppressed = box.checkBox() && box.checkBox()->isChecked();
    return answer;
}

} // namespace quillane
