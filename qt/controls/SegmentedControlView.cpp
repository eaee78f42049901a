// A row of segments: follows its control, and is one stop for the keyboard.
#include "qt/GuiThread.h"
#include "qt/controls/SegmentButton.h"
#include "qt/controls/WidgetTeardown.h"

#include <local/qt/SegmentedControlView.h>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPointer>
#include <QString>
#include <QStyle>
#include <algorithm>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

// In device-independent pixels. Rows of many segments do not force windows to be wider.
constexpr int kWidestMinimum = 160;

constexpr auto kModifiersThatMatter =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

// One beside the other. Where there is less room than all wish, the widest give way first: none is
// cut while another one is wider.
class SegmentLayout final : public QHBoxLayout {
 public:
  using QHBoxLayout::QHBoxLayout;

  void setGeometry(const QRect& rect) override {
    if (rect.width() >= sizeHint().width()) return QHBoxLayout::setGeometry(rect);
    // Remembers the rectangle; the box's own would place the items, too.
    QLayout::setGeometry(rect);  // NOLINT(bugprone-parent-virtual-call)
    const auto direction = parentWidget()->layoutDirection();
    int left = rect.left();
    for (int i = 0; const int width : sharesOf(rect.width())) {
      const QRect place(left, rect.top(), width, rect.height());
      itemAt(i++)->setGeometry(QStyle::visualRect(direction, rect, place));
      left += width;
    }
  }

 private:
  // In the order of the items.
  [[nodiscard]] std::vector<int> sharesOf(int room) const {
    std::vector<std::pair<int, std::size_t>> wishes;
    for (int i = 0; i < count(); ++i)
      wishes.emplace_back(itemAt(i)->sizeHint().width(), wishes.size());
    std::ranges::sort(wishes);
    std::vector<int> shares(wishes.size());
    for (auto waiting = static_cast<int>(wishes.size()); const auto& [wish, item] : wishes) {
      shares[item] = std::min(wish, room / waiting--);
      room -= shares[item];
    }
    return shares;
  }
};

QAccessibleInterface* groupInterface(const QString&, QObject* object) {
  auto* view = qobject_cast<SegmentedControlView*>(object);
  return view != nullptr ? new QAccessibleWidget(view, QAccessible::Grouping) : nullptr;
}

// From now on and as long as the application lives, the views are groups to screen readers. Each
// view calls it; only the first call in an application does something.
void installGroupInterfaces() {
  // Qt forgets its factories with the application.
  static QPointer<QObject> installed;
  if (installed) return;
  installed = new QObject(qApp);
  QAccessible::installFactory(&groupInterface);
}

}  // namespace

class SegmentedControlView::Implementation {
 public:
  explicit Implementation(SegmentedControlView& view) : view_(view), relay_(view) {}
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
  ~Implementation();

  [[nodiscard]] const std::shared_ptr<SegmentedControl>& control() const { return control_; }
  // Apart from the constructor, since the view hears of its children.
  void addLayout();
  void setControl(std::shared_ptr<SegmentedControl> control);
  bool take(const QEvent& event);
  void showJoints();
  // False when the key means nothing here.
  bool press(const QKeyEvent& event);

 private:
  using Index = std::ptrdiff_t;

  void refresh();
  void setCount(std::size_t count);
  void addButton();
  void removeLastButton();
  void choose(const SegmentButton& button);

  [[nodiscard]] Index count() const { return std::ssize(buttons_); }
  [[nodiscard]] SegmentButton* at(Index index) const {
    return buttons_[static_cast<std::size_t>(index)];
  }
  // The nearest segment from `index` on in steps of `step` that can be used as soon as the view
  // can; null for none.
  [[nodiscard]] SegmentButton* usable(Index index, Index step) const;
  [[nodiscard]] SegmentButton* nearestUsable(Index index) const;
  [[nodiscard]] Index indexOf(const SegmentButton* button) const;

  void setCurrent(SegmentButton* button);
  void leaveUnusable(const std::vector<Segment>& segments);
  bool go(SegmentButton* target);
  bool press(int key);
  bool openMenu();

  SegmentedControlView& view_;
  QHBoxLayout* layout_ = nullptr;
  Relay relay_;
  std::shared_ptr<SegmentedControl> control_;
  Observation observation_;
  std::vector<SegmentButton*> buttons_;
  SegmentButton* current_ = nullptr;  // the one that Tab reaches
};

void SegmentedControlView::Implementation::addLayout() {
  layout_ = new SegmentLayout(&view_);
  layout_->setContentsMargins(0, 0, 0, 0);
  layout_->setSpacing(0);
  layout_->setSizeConstraint(QLayout::SetNoConstraint);
}

// The buttons outlive it by a little.
SegmentedControlView::Implementation::~Implementation() {
  observation_.end();
  for (auto* button : buttons_) button->disconnect(&view_);
}

void SegmentedControlView::Implementation::setControl(std::shared_ptr<SegmentedControl> control) {
  observation_.end();
  control_ = std::move(control);
  if (control_) observation_ = control_->observe([this] { relay_(); });
  refresh();
}

bool SegmentedControlView::Implementation::take(const QEvent& event) {
  if (!relay_.take(event)) return false;
  refresh();
  return true;
}

void SegmentedControlView::Implementation::refresh() {
  const auto segments = control_ ? control_->segments() : std::vector<Segment>();
  leaveUnusable(segments);
  setCount(segments.size());
  for (std::size_t i = 0; i < segments.size(); ++i) buttons_[i]->display(segments[i]);
  showJoints();
  setCurrent(nearestUsable(std::max<Index>(0, indexOf(current_))));
}

// Before Qt moves the focus out of the row.
void SegmentedControlView::Implementation::leaveUnusable(const std::vector<Segment>& segments) {
  if (current_ == nullptr || !current_->hasFocus()) return;
  const auto enabled = [&](const SegmentButton* button) {
    const auto index = static_cast<std::size_t>(indexOf(button));
    return index < segments.size() && segments[index].enabled;
  };
  if (enabled(current_)) return;
  const auto from = indexOf(current_);
  SegmentButton* nearest = nullptr;
  for (auto* button : buttons_) {
    if (!button->isEnabledTo(&view_) || !enabled(button)) continue;
    const auto distance = [&](const SegmentButton* b) { return std::abs(indexOf(b) - from); };
    if (nearest == nullptr || distance(button) < distance(nearest)) nearest = button;
  }
  go(nearest);
}

void SegmentedControlView::Implementation::setCount(std::size_t count) {
  while (buttons_.size() > count) removeLastButton();
  while (buttons_.size() < count) addButton();
}

void SegmentedControlView::Implementation::addButton() {
  auto* button = new SegmentButton(&view_);
  button->setFocusPolicy(Qt::ClickFocus);
  // Who takes no focus has no place in the order either.
  if (buttons_.empty()) view_.setFocusPolicy(Qt::StrongFocus);
  QObject::connect(button, &QToolButton::clicked, &view_, [this, button] { choose(*button); });
  QObject::connect(button, &SegmentButton::focused, &view_, [this, button] { setCurrent(button); });
  QWidget::setTabOrder(buttons_.empty() ? static_cast<QWidget*>(&view_) : buttons_.back(), button);
  layout_->addWidget(button);
  buttons_.push_back(button);
  // Layouts show their widgets later, when something else may have been painted already.
  if (view_.isVisible()) button->show();
}

void SegmentedControlView::Implementation::removeLastButton() {
  auto* button = buttons_.back();
  buttons_.pop_back();
  if (current_ == button) setCurrent(nullptr);
  button->disconnect(&view_);
  layout_->removeWidget(button);
  button->hide();
  // Later: it may be telling of a click at this moment.
  button->deleteLater();
}

void SegmentedControlView::Implementation::showJoints() {
  const bool reversed = view_.layoutDirection() == Qt::RightToLeft;
  for (Index i = 0; i < count(); ++i) {
    SegmentButton::Joints joints{i > 0, i + 1 < count()};
    if (reversed) std::swap(joints.left, joints.right);
    at(i)->setJoints(joints);
  }
}

// Last: whoever is told may destroy the view.
void SegmentedControlView::Implementation::choose(const SegmentButton& button) {
  if (button.menu() == nullptr) Q_EMIT view_.segmentChosen(static_cast<int>(indexOf(&button)));
}

SegmentButton* SegmentedControlView::Implementation::usable(Index index, Index step) const {
  for (; index >= 0 && index < count(); index += step)
    if (at(index)->isEnabledTo(&view_)) return at(index);
  return nullptr;
}

SegmentButton* SegmentedControlView::Implementation::nearestUsable(Index index) const {
  auto* after = usable(index, 1);
  auto* before = usable(std::min(index, count() - 1), -1);
  if (after == nullptr || before == nullptr) return after != nullptr ? after : before;
  return indexOf(after) - index <= index - indexOf(before) ? after : before;
}

SegmentedControlView::Implementation::Index SegmentedControlView::Implementation::indexOf(
    const SegmentButton* button) const {
  const auto found = std::ranges::find(buttons_, button);
  return found == buttons_.end() ? -1 : found - buttons_.begin();
}

// The row is one stop for Tab, and whoever gives the view the focus gives it to this segment.
void SegmentedControlView::Implementation::setCurrent(SegmentButton* button) {
  if (button != current_) {
    if (current_ != nullptr) current_->setFocusPolicy(Qt::ClickFocus);
    current_ = button;
    view_.setFocusProxy(button);
  }
  // That of the segment, too.
  view_.setFocusPolicy(button != nullptr ? Qt::StrongFocus : Qt::NoFocus);
}

bool SegmentedControlView::Implementation::go(SegmentButton* target) {
  if (target == nullptr) return false;
  target->setFocus(Qt::OtherFocusReason);
  return true;
}

bool SegmentedControlView::Implementation::press(const QKeyEvent& event) {
  if (current_ == nullptr) return false;
  const auto modifiers = event.modifiers() & kModifiersThatMatter;
  if (modifiers == Qt::AltModifier && event.key() == Qt::Key_Down) return openMenu();
  return !modifiers && press(event.key());
}

bool SegmentedControlView::Implementation::press(int key) {
  const Index forward = view_.layoutDirection() == Qt::RightToLeft ? -1 : 1;
  const Index from = indexOf(current_);
  switch (key) {
    case Qt::Key_Right:
      go(usable(from + forward, forward));
      return true;
    case Qt::Key_Left:
      go(usable(from - forward, -forward));
      return true;
    case Qt::Key_Home:
      return go(usable(0, 1));
    case Qt::Key_End:
      return go(usable(count() - 1, -1));
    case Qt::Key_Down:
      return openMenu();
    case Qt::Key_Return:
    case Qt::Key_Enter:
      // A menu may go while it is open: that is no choice of the segment.
      if (!openMenu()) current_->click();
      return true;
    default:
      return false;
  }
}

bool SegmentedControlView::Implementation::openMenu() {
  if (current_->menu() == nullptr) return false;
  current_->showMenu();
  return true;
}

SegmentedControlView::SegmentedControlView(std::shared_ptr<SegmentedControl> control,
                                           QWidget* parent)
    : QWidget(parent), implementation_(std::make_unique<Implementation>(*this)) {
  setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
  implementation_->addLayout();
  installGroupInterfaces();
  setControl(std::move(control));
}

SegmentedControlView::~SegmentedControlView() {
  markHiddenWithoutApplication(*this);
}

std::shared_ptr<SegmentedControl> SegmentedControlView::control() const {
  return implementation_->control();
}

void SegmentedControlView::setControl(std::shared_ptr<SegmentedControl> control) {
  implementation_->setControl(std::move(control));
}

QSize SegmentedControlView::minimumSizeHint() const {
  return layout()->totalMinimumSize().boundedTo({kWidestMinimum, QWIDGETSIZE_MAX});
}

bool SegmentedControlView::event(QEvent* event) {
  return implementation_->take(*event) || QWidget::event(event);
}

void SegmentedControlView::changeEvent(QEvent* event) {
  if (event->type() == QEvent::LayoutDirectionChange) implementation_->showJoints();
  QWidget::changeEvent(event);
}

void SegmentedControlView::keyPressEvent(QKeyEvent* event) {
  const bool understood = implementation_->press(*event);
  event->setAccepted(understood);
}

}  // namespace kvl::qt
