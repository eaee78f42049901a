#include "qt/MenuItemAction.h"

#include "qt/MenuItemIcon.h"
#include "qt/PlainText.h"

#include <QShortcutEvent>
#include <QWidget>
#include <utility>

namespace kvl::qt {
namespace {

QString escaped(QString title) {
  return title.replace(QLatin1Char('&'), QLatin1String("&&"));
}

}  // namespace

MenuItemAction::MenuItemAction(std::shared_ptr<MenuItem> item, QObject& owner)
    : QAction(&owner), item_(std::move(item)) {
  setSeparator(item_->kind() != MenuItem::Kind::item);
  setShortcutVisibleInContextMenu(true);
  setMenuRole(QAction::NoRole);
}

const QWidget* MenuItemAction::view() const {
  return qobject_cast<const QWidget*>(parent()->parent());
}

void MenuItemAction::follow(std::function<void()> handler) {
  following_ = true;
  observation_ = item_->observe([this, told = std::move(handler)] {
    if (!changed_.exchange(true)) told();
  });
}

void MenuItemAction::stopFollowing() {
  following_ = false;
  observation_.end();
}

bool MenuItemAction::update() {
  changed_ = false;  // first: what changes from here on is told again
  auto submenu = item_->submenu();
  auto entry = entryOf(*item_);
  if (entry == entry_ && submenu == submenu_) return false;
  show(entry);
  const bool otherImage = entry.image != entry_.image;
  submenu_ = std::move(submenu);
  entry_ = std::move(entry);
  measured_ = {};
  if (otherImage) showIcon();
  return true;
}

// Menus hear of each property by itself, so those that stay are left alone.
void MenuItemAction::show(const MenuEntry& entry) {
  if (entry.title != entry_.title) setText(escaped(entry.title));
  if (entry.toolTip != entry_.toolTip) setToolTip(wrapped(entry.toolTip));
  if (entry.keys != entry_.keys) setShortcut(entry.keys);
  if (entry.enabled != isEnabled()) setEnabled(entry.enabled);
  setCheckable(entry.state != MenuItem::State::off);
  setChecked(entry.state == MenuItem::State::on);
}

void MenuItemAction::showIcon() {
  setIcon(entry_.image ? QIcon(new MenuItemIcon(*this)) : QIcon());
}

void MenuItemAction::restoreMark() {
  setChecked(entry_.state == MenuItem::State::on);
}

bool MenuItemAction::event(QEvent* event) {
  if (event->type() != QEvent::Shortcut || !static_cast<QShortcutEvent*>(event)->isAmbiguous())
    return QAction::event(event);
  Q_EMIT pressedAmong();
  return true;
}

}  // namespace kvl::qt
