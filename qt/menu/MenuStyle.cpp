#include "qt/menu/MenuStyle.h"

#include "qt/menu/MenuContents.h"

#include <QApplication>
#include <QPointer>
#include <QScreen>
#include <QStyleOption>
#include <algorithm>

namespace kvl::qt {
namespace {

// The style of everything else. Asked as it is, and not copied, since only the host knows how it
// was made.
QStyle& applicationStyle() {
  return *QApplication::style();
}

constexpr int kWidestWithoutScreen = 1000;

// The screen without the menu's frame: a text is cut only where no menu could show more of it.
int widestEntry(const QStyleOption& option, const QWidget& menu) {
  const QScreen* screen = menu.screen();
  if (!screen) return kWidestWithoutScreen;
  const auto metric = [&](QStyle::PixelMetric which) {
    return applicationStyle().pixelMetric(which, &option, &menu);
  };
  const QMargins margins = menu.contentsMargins();
  const int frame = margins.left() + margins.right() +
                    2 * (metric(QStyle::PM_MenuPanelWidth) + metric(QStyle::PM_MenuHMargin));
  return screen->availableGeometry().width() - frame;
}

// Above the first entry and below the last.
constexpr int kMargin = 4;

// Null for everything that the application's style shows.
const MenuEntry* entryToShow(const MenuContents* contents) {
  const MenuEntry* entry = contents ? contents->current() : nullptr;
  return entry && entry->kind != MenuItem::Kind::separator ? entry : nullptr;
}

}  // namespace

MenuStyle* MenuStyle::shared() {
  static QPointer<MenuStyle> style;
  if (!style) {
    style = new MenuStyle;
    style->setParent(qApp);
  }
  return style;
}

MenuStyle::MenuStyle() {
  follow(applicationStyle());
}

void MenuStyle::follow(QStyle& style) {
  connect(&style, &QObject::destroyed, this, &MenuStyle::styleGone);
}

// Widgets with a style of their own are not told when the application's changes.
void MenuStyle::styleGone() {
  if (QApplication::closingDown()) return;
  painter_.styleChanged();
  follow(applicationStyle());
  for (QWidget* widget : QApplication::allWidgets()) {
    if (!MenuContents::of(widget)) continue;
    if (widget->testAttribute(Qt::WA_WState_Polished)) applicationStyle().polish(widget);
    QEvent change(QEvent::StyleChange);
    QCoreApplication::sendEvent(widget, &change);
  }
}

void MenuStyle::polish(QWidget* widget) {
  applicationStyle().polish(widget);
}

void MenuStyle::unpolish(QWidget* widget) {
  applicationStyle().unpolish(widget);
}

void MenuStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                              QPainter* painter, const QWidget* widget) const {
  applicationStyle().drawPrimitive(element, option, painter, widget);
}

void MenuStyle::drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                            const QWidget* widget) const {
  const auto* row = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
  const auto* contents = element == CE_MenuItem && row ? MenuContents::of(widget) : nullptr;
  if (const MenuEntry* entry = entryToShow(contents))
    painter_.paint(*entry, *contents, *row, applicationStyle(), *painter, widget);
  else
    applicationStyle().drawControl(element, option, painter, widget);
}

QSize MenuStyle::sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                                  const QWidget* widget) const {
  const auto* row = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
  const auto* contents = type == CT_MenuItem && row ? MenuContents::of(widget) : nullptr;
  if (const MenuEntry* entry = entryToShow(contents)) {
    QSize& kept = contents->currentSize();
    if (!kept.isValid())
      kept = sizeOf(*entry, contents->columns(), painter_.metrics(row->font),
                    widestEntry(*option, *widget));
    return kept;
  }
  return applicationStyle().sizeFromContents(type, option, size, widget);
}

int MenuStyle::pixelMetric(PixelMetric metric, const QStyleOption* option,
                           const QWidget* widget) const {
  const int base = applicationStyle().pixelMetric(metric, option, widget);
  return metric == PM_MenuVMargin && MenuContents::of(widget) ? std::max(base, kMargin) : base;
}

int MenuStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                         QStyleHintReturn* answer) const {
  // Long menus scroll, instead of covering the screen with columns.
  if (hint == SH_Menu_SupportsSections || hint == SH_Menu_Scrollable) return 1;
  return applicationStyle().styleHint(hint, option, widget, answer);
}

}  // namespace kvl::qt
