#include "qt/MenuItemIcon.h"

#include "qt/ImagePlacement.h"
#include "qt/MenuContents.h"
#include "qt/MenuItemAction.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QPixmap>

namespace kvl::qt {

MenuItemIcon::MenuItemIcon(const MenuItemAction& action) : action_(&action) {}

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

}  // namespace kvl::qt
