// What painters and screen readers ask of a menu view.
#pragma once

#include "qt/menu/MenuEntry.h"

#include <QImage>
#include <QSize>

class QAction;
class QWidget;

namespace kvl::qt {

// Every `MenuView` has them: its implementation is one. GUI thread.
class MenuContents {
 public:
  // The contents of a menu view; null for any other widget. See MenuView.cpp.
  [[nodiscard]] static const MenuContents* of(const QWidget* widget);

  // The entry of an action; null for one that the host added itself.
  [[nodiscard]] virtual const MenuEntry* entry(const QAction* action) const = 0;
  // The entry whose style option was filled in last: the one that is being measured or painted.
  // Null when it was the host's own action.
  [[nodiscard]] virtual const MenuEntry* current() const = 0;
  [[nodiscard]] virtual MenuColumns columns() const = 0;
  // Where whoever measures the current entry keeps its size: menus ask for it again and again. Not
  // valid until then, and again when something has changed on which it depends.
  [[nodiscard]] virtual QSize& currentSize() const = 0;
  // The picture of the entry's image at the menu's device pixel ratio, in its own colours (of a
  // template only the alpha counts); null until it has been drawn.
  [[nodiscard]] virtual QImage icon(const MenuEntry& entry) const = 0;

 protected:
  MenuContents() = default;
  ~MenuContents() = default;
  MenuContents(const MenuContents&) = default;
  MenuContents& operator=(const MenuContents&) = default;
};

}  // namespace kvl::qt
