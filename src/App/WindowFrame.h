#pragma once

class QWidget;

namespace quillane
{

// Lays window out around one view, edge to edge: the window takes the view's size and follows
// it as the view grows or shrinks.
void frameAround(QWidget* window, QWidget* content);

} // namespace quillane
