#include "WindowFrame.h"

#include <QVBoxLayout>
#include <QWidget>

namespace quillane
{

void frameAround(QWidget* window, QWidget* content)
{
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(content);
}

} // namespace quillane
