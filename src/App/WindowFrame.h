#pragma once

class QWidget;

namespace quillane
{

// Lays window out around one view, edge to edge: the window takes the view's size and follows
// it as the view grows or shrinks, but never grows past the free area of its screen. What does
// not fit there scrolls, so that no part of the view lies off the screen at any scale.
void frameAround(QWidget* window, QWidget* content);

} // namespace quillane
