// The icons of menu actions.
#pragma once

#include <QIconEngine>
#include <QImage>
#include <QPointer>

namespace kvl::qt {

class MenuItemAction;

// The picture of an action's item for those who show actions by themselves, such as tool bars; menu
// views ask their `MenuContents` instead. It is drawn when somebody asks for it, and nothing until
// then: the action gets a new icon when it has come. Templates are in the colour of text. GUI
// thread.
class MenuItemIcon final : public QIconEngine {
 public:
  explicit MenuItemIcon(const MenuItemAction& action);

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
  [[nodiscard]] QIconEngine* clone() const override { return new MenuItemIcon(*this); }

 private:
  [[nodiscard]] QImage picture(QIcon::Mode mode) const;

  const QPointer<const MenuItemAction> action_;
};

}  // namespace kvl::qt
