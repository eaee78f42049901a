#include "qt/controls/SegmentButton.h"

#include "qt/PlainText.h"
#include "qt/controls/Painting.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>
#include <QStyleOptionFocusRect>
#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace kvl::qt {
namespace {

// In device-independent pixels.
constexpr int kSideMargin = 10;
constexpr int kEdgeMargin = 4;
constexpr int kGap = 5;
constexpr int kIndicatorSide = 9;
// Longer labels are elided.
constexpr int kWidestLabel = 240;
// How far the panel goes on under the neighbours, so that its corners are not seen.
constexpr int kUnderNeighbour = 12;
// The line between neighbours: how much of the text's colour is in it.
constexpr double kLineShare = 0.25;

// The keys that the row understands; a button by itself would take them for something else.
bool isForRow(int key) {
  constexpr std::array kRowKeys{Qt::Key_Left, Qt::Key_Right, Qt::Key_Up,     Qt::Key_Down,
                                Qt::Key_Home, Qt::Key_End,   Qt::Key_Return, Qt::Key_Enter};
  return std::ranges::find(kRowKeys, key) != kRowKeys.end();
}

constexpr double kLargestEnlargement = 4;

bool isProper(Size size) {
  return std::isfinite(size.width) && std::isfinite(size.height) && size.width > 0 &&
         size.height > 0;
}

// The size at which an image of `size` is shown in a space of `box`, in points.
QSizeF placedSize(Size size, QSize box, ImageScaling scaling) {
  const QSizeF space = box;
  if (!isProper(size) || scaling == ImageScaling::axesIndependently) return space;
  const QSizeF own(size.width, size.height);
  const bool fits = own.width() <= space.width() && own.height() <= space.height();
  if (scaling == ImageScaling::none || (fits && scaling == ImageScaling::proportionallyDown))
    return own;
  return own.scaled(space, Qt::KeepAspectRatio);
}

// How many times larger than usual the picture of an image has to be drawn, so that it is sharp at
// the size `placed`: usually it is shrunk to fit a square of `side`. At least 1, and bounded.
double enlargementOf(Size size, QSizeF placed, int side) {
  if (!isProper(size)) return 1;
  const double shrinking = std::min(1.0, side / std::max(size.width, size.height));
  const double needed = std::max(placed.width() / (size.width * shrinking),
                                 placed.height() / (size.height * shrinking));
  return std::clamp(needed, 1.0, kLargestEnlargement);
}

// Paints `picture` in the middle of `box` at the size `placed`; what does not fit is not seen.
void paintImage(QPainter& painter, const QRect& box, QSizeF placed, const QImage& picture,
                bool enabled) {
  QRectF target(QPointF(), placed);
  target.moveCenter(QRectF(box).center());
  painter.save();
  painter.setClipRect(box);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  if (!enabled) painter.setOpacity(kDisabledOpacity);
  painter.drawImage(target, picture);
  painter.restore();
}

}  // namespace

SegmentButton::SegmentButton(QWidget* parent) : QToolButton(parent) {
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  setAttribute(Qt::WA_Hover);
}

void SegmentButton::display(const Segment& segment) {
  displayWords(segment);
  displayMenu(segment.menu);
  displayImage(segment);
  setEnabled(segment.enabled);
}

void SegmentButton::displayWords(const Segment& segment) {
  const QString label = lineOf(segment.label).trimmed();
  const QString toolTip = linesOf(segment.toolTip.value_or("")).trimmed();
  setToolTip(wrapped(toolTip));
  // Else screen readers are told the mark-up.
  setAccessibleDescription(toolTip);
  setAccessibleName(label.isEmpty() ? toolTip.section(QLatin1Char('\n'), 0, 0) : label);
  if (label == label_ && segment.showsMenuIndicator == showsIndicator_) return;
  label_ = label;
  showsIndicator_ = segment.showsMenuIndicator;
  updateGeometry();
  update();
}

void SegmentButton::displayMenu(const std::shared_ptr<Menu>& menu) {
  // Buttons that open a menu at once cannot be pressed by screen readers, even without one.
  setPopupMode(menu ? InstantPopup : DelayedPopup);
  if (menuView_ != nullptr && menu) {
    if (menuView_->menu() != menu) menuView_->setMenu(menu);
  } else if (menu) {
    menuView_ = new MenuView(menu, this);
    setMenu(menuView_);
  } else if (menuView_ != nullptr) {
    setMenu(nullptr);
    // Later: it may be open.
    std::exchange(menuView_, nullptr)->deleteLater();
  }
}

void SegmentButton::displayImage(const Segment& segment) {
  if (segment.image == image_ && segment.imageScaling == scaling_) return;
  image_ = segment.image;
  scaling_ = segment.imageScaling;
  icons_ = image_ ? std::make_unique<MenuIcons>([this](const auto&) { update(); }) : nullptr;
  updateGeometry();
  update();
}

void SegmentButton::setJoints(Joints joints) {
  if (joints == joints_) return;
  joints_ = joints;
  update();
}

QSize SegmentButton::contentSize(int labelWidth) const {
  const int icon = image_ ? MenuIcons::side() : 0;
  const int indicator = showsIndicator_ ? kIndicatorSide : 0;
  int width = 0;
  for (const int part : {icon, labelWidth, indicator})
    if (part > 0) width += part + (width > 0 ? kGap : 0);
  return {width, std::max(icon, fontMetrics().height())};
}

QSize SegmentButton::sizeHint() const {
  ensurePolished();
  const int label = std::min(widthOf(label_, font()), kWidestLabel);
  return contentSize(label).grownBy({kSideMargin, kEdgeMargin, kSideMargin, kEdgeMargin});
}

QSize SegmentButton::minimumSizeHint() const {
  const int label = label_.isEmpty() ? 0 : fontMetrics().averageCharWidth();
  return contentSize(label).grownBy({kGap, kEdgeMargin, kGap, kEdgeMargin}).boundedTo(sizeHint());
}

SegmentButton::Content SegmentButton::content() const {
  const int gaps = contentSize(1).width() - 1;
  const int most = std::max(0, width() - gaps - 2 * std::min(kGap, kSideMargin));
  const int label = std::min(widthOf(label_, font()), most);
  QRect all(QPoint(), contentSize(label));
  all.moveCenter(rect().center());
  Content content;
  int left = all.left();
  const auto place = [&](int width, int height) {
    QRect part(left, all.center().y() - (height - 1) / 2, width, height);
    left += width + kGap;
    return QStyle::visualRect(layoutDirection(), rect(), part);
  };
  if (image_) content.icon = place(MenuIcons::side(), MenuIcons::side());
  if (label > 0) content.label = place(label, fontMetrics().height());
  if (showsIndicator_) content.indicator = place(kIndicatorSide, kIndicatorSide);
  return content;
}

void SegmentButton::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  paintPanel(painter);
  paintContent(painter);
}

void SegmentButton::paintPanel(QPainter& painter) const {
  QStyleOptionButton option;
  option.initFrom(this);
  option.state.setFlag(QStyle::State_HasFocus, false);
  option.state |= isDown() ? QStyle::State_Sunken : QStyle::State_Raised;
  option.rect.adjust(joints_.left ? -kUnderNeighbour : 0, 0, joints_.right ? kUnderNeighbour : 0,
                     0);
  style()->drawPrimitive(QStyle::PE_PanelButtonCommand, &option, &painter, this);
  if (joints_.right) {
    const auto line = blended(palette().color(QPalette::Button),
                              palette().color(QPalette::ButtonText), kLineShare);
    painter.fillRect(QRect(width() - 1, 2, 1, height() - 4), line);
  }
}

void SegmentButton::paintContent(QPainter& painter) const {
  const auto parts = content();
  const QColor colour = palette().color(QPalette::ButtonText);
  painter.setPen(colour);
  if (!parts.icon.isEmpty()) paintIcon(painter, parts.icon, colour);
  if (!parts.label.isEmpty())
    paintLine(painter, parts.label, label_, Qt::AlignCenter, painter.fontMetrics());
  if (!parts.indicator.isEmpty()) {
    QStyleOption arrow;
    arrow.initFrom(this);
    arrow.rect = parts.indicator;
    style()->drawPrimitive(QStyle::PE_IndicatorArrowDown, &arrow, &painter, this);
  }
  if (!hasFocus()) return;
  QStyleOptionFocusRect focus;
  focus.initFrom(this);
  focus.rect = rect().adjusted(2, 2, -2, -2);
  style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, this);
}

void SegmentButton::paintIcon(QPainter& painter, const QRect& box, const QColor& colour) const {
  const auto size = placedSize(image_->size(), box.size(), scaling_);
  const double enlargement = enlargementOf(image_->size(), size, MenuIcons::side());
  const QImage picture = icons_->picture(image_, devicePixelRatioF() * enlargement);
  if (picture.isNull()) return;
  paintImage(painter, box, size, image_->isTemplate() ? tinted(picture, colour) : picture,
             isEnabled() || image_->isTemplate());
}

void SegmentButton::keyPressEvent(QKeyEvent* event) {
  if (isForRow(event->key())) {
    event->ignore();
  } else {
    QToolButton::keyPressEvent(event);
  }
}

void SegmentButton::focusInEvent(QFocusEvent* event) {
  QToolButton::focusInEvent(event);
  Q_EMIT focused();
}

}  // namespace kvl::qt
