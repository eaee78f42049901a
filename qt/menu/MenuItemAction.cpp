#include "qt/menu/MenuItemAction.h"

#include "qt/PlainText.h"
#include "qt/controls/Painting.h"
#include "qt/menu/MenuContents.h"

#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QPointer>
#include <QShortcutEvent>
#include <QWidget>
#include <utility>

namespace kvl::qt {
namespace {

// The picture of an action's item for those who show actions by themselves, such as tool bars; menu
// views ask their `MenuContents` instead. It is drawn when somebody asks for it, and nothing until
// then: the action gets a new icon when it has come. Templates are in the colour of text. GUI
// thread.
class MenuItemIcon final : public QIconEngine {
 public:
  explicit MenuItemIcon(const MenuItemAction& action) : action_(&action) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
  [[nodiscard]] QIconEngine* clone() const override { return new MenuItemIcon(*this); }

 private:
  [[nodiscard]] QImage picture(QIcon::Mode mode) const;

  const QPointer<const MenuItemAction> action_;
};

QImage MenuItemIcon::picture(QIcon::Mode mode) const {
  const auto* contents = action_ ? MenuContents::of(action_->view()) : nullptr;
  const auto* entry = contents ? contents->entry(action_) : nullptr;
  if (!entry || !entry->image) return {};
  auto picture = contents->icon(*entry);
  if (picture.isNull() || !entry->image->isTemplate()) return picture;
  const auto group = mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active;
  return tinted(picture, QGuiApplication::palette().color(group, QPalette::WindowText));
}

QPixmap MenuItemIcon::pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) {
  auto image = picture(mode);
  if (image.isNull()) return {};
  image.setDevicePixelRatio(1);
  if (image.width() > size.width() || image.height() > size.height())
    image = image.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  return QPixmap::fromImage(image);
}

void MenuItemIcon::paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
                         QIcon::State state) {
  const auto shown = pixmap(rect.size(), mode, state);
  QRect place = shown.rect();
  place.moveCenter(rect.center());
  painter->drawPixmap(place.topLeft(), shown);
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
