// How menu views look.
#pragma once

#include "qt/menu/MenuPainter.h"

#include <QProxyStyle>

namespace kvl::qt {

class MenuContents;
struct MenuEntry;

// Measures and paints the entries of menu views in terms of the application's style, which paints
// panel, highlight, separators and arrows. Menus without contents, and actions of the host's own,
// look as the application's style has them. One for all views. GUI thread.
class MenuStyle : public QProxyStyle {
  Q_OBJECT

 public:
  // The style of the running application. It follows the application's style as it changes and goes
  // away with the application.
  [[nodiscard]] static MenuStyle* shared();

  void polish(QWidget* widget) override;
  void unpolish(QWidget* widget) override;
  using QProxyStyle::polish;
  using QProxyStyle::unpolish;

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
  void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                   const QWidget* widget) const override;
  [[nodiscard]] QSize sizeFromContents(ContentsType type, const QStyleOption* option,
                                       const QSize& size, const QWidget* widget) const override;
  [[nodiscard]] int pixelMetric(PixelMetric metric, const QStyleOption* option,
                                const QWidget* widget) const override;
  [[nodiscard]] int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                              QStyleHintReturn* answer) const override;

 private:
  MenuStyle();
  void follow(QStyle& style);
  void styleGone();

  mutable MenuPainter painter_;
};

}  // namespace kvl::qt
