// What is drawn in menus and is no text.
#pragma once

#include <local/platform/MenuItem.h>

#include <QColor>
#include <QRect>

class QPainter;

namespace kvl::qt {

// A check mark or a dash, in lines that go with text of a font in which `rect` was measured.
void paintMark(QPainter& painter, const QRect& rect, MenuItem::State state, const QColor& colour);

// What is under the text of a badge.
void paintPill(QPainter& painter, const QRect& rect, const QColor& colour);

}  // namespace kvl::qt
