// What screen readers learn of menu views.
#pragma once

#include "qt/menu/MenuEntry.h"

#include <QAccessible>
#include <QString>
#include <memory>
#include <vector>

class QAction;
class QWidget;

namespace kvl::qt {

// From now on and as long as the application lives, the widgets that have `MenuContents` speak of
// their entries. Each view calls it; only the first call in an application does something. GUI
// thread.
void installMenuAccessibility();

// What stands for an entry: title, second line and badge, one after the other.
[[nodiscard]] QString spokenName(const MenuEntry& entry);

// What screen readers have to be told when the entry of `action`, which is in `menu`, has changed.
[[nodiscard]] std::vector<std::unique_ptr<QAccessibleEvent>> changeEvents(QWidget& menu,
                                                                          const QAction& action,
                                                                          const MenuEntry& before,
                                                                          const MenuEntry& after);

// Tells screen readers that a row has come, `QAccessible::ObjectCreated`, or that one is about to
// go, `QAccessible::ObjectDestroyed`: to be called while `action` is in `menu`. Cheap when there
// are none; nobody is told of a menu that is not shown, which is read when it opens. GUI thread.
void announceRow(QWidget& menu, const QAction& action, QAccessible::Event event);

// Tells screen readers how the entry of `action`, which is in `menu`, has changed. Cheap when there
// are none. GUI thread.
void announceChange(QWidget& menu, const QAction& action, const MenuEntry& before,
                    const MenuEntry& after);

}  // namespace kvl::qt
