#include "qt/ElidedText.h"
#include "qt/PlainText.h"
#include "qt/Relay.h"
#include "qt/WidgetEnd.h"

#include <local/qt/ProgressView.h>

#include <QHBoxLayout>
#include <QHelpEvent>
#include <QProgressBar>
#include <QToolTip>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

// In device-independent pixels.
constexpr int kSpacing = 8;
constexpr int kBarWidth = 120;
constexpr int kBarHeight = 8;
// Counts of bytes are larger than bars can count: they count in parts of a thousand.
constexpr int kParts = 1000;

// A record of one unit knows no shares: it only tells whether it is done.
bool isShareKnown(const ProgressState& state) {
  return state.totalUnitCount > 1;
}

bool isFinished(const ProgressState& state) {
  return state.totalUnitCount > 0 && state.completedUnitCount >= state.totalUnitCount;
}

bool hasWords(const ProgressState& state) {
  return !state.localizedDescription.empty() || !state.localizedAdditionalDescription.empty();
}

bool isRunning(const ProgressState& state) {
  return !isFinished(state) && (state.totalUnitCount > 0 || hasWords(state));
}

void showShare(QProgressBar& bar, const ProgressState& state) {
  const bool known = isShareKnown(state);
  const double share = std::clamp(state.fractionCompleted(), 0.0, 1.0);
  bar.setRange(0, known ? kParts : 0);
  bar.setValue(known ? static_cast<int>(share * kParts) : 0);
}

}  // namespace

class ProgressView::Implementation {
 public:
  explicit Implementation(ProgressView& view) : view_(view), relay_(view) {}
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
  ~Implementation() { observation_.end(); }

  [[nodiscard]] const std::shared_ptr<const Progress>& progress() const { return progress_; }
  // Apart from the constructor, since the view hears of its children.
  void addChildren();
  void setProgress(std::shared_ptr<const Progress> progress);
  bool take(const QEvent& event);
  // False where there is no text.
  bool showToolTip(const QHelpEvent& event) const;

 private:
  void refresh();
  void showWords(const ProgressState& state);

  ProgressView& view_;
  // Not the widget's own, which screen readers would be told with its mark-up.
  QString toolTip_;
  ElidedText* description_ = nullptr;
  ElidedText* addition_ = nullptr;
  QProgressBar* bar_ = nullptr;
  Relay relay_;
  std::shared_ptr<const Progress> progress_;
  Observation observation_;
};

void ProgressView::Implementation::addChildren() {
  description_ = new ElidedText(ElidedText::Tone::primary, &view_);
  addition_ = new ElidedText(ElidedText::Tone::secondary, &view_);
  bar_ = new QProgressBar(&view_);
  bar_->setTextVisible(false);
  bar_->setFixedSize(kBarWidth, kBarHeight);
  bar_->hide();
  auto* layout = new QHBoxLayout(&view_);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(kSpacing);
  layout->addWidget(description_);
  layout->addWidget(addition_, 1);
  layout->addWidget(bar_);
}

void ProgressView::Implementation::setProgress(std::shared_ptr<const Progress> progress) {
  observation_.end();
  progress_ = std::move(progress);
  if (progress_) observation_ = progress_->observe([this](const ProgressState&) { relay_(); });
  refresh();
}

bool ProgressView::Implementation::take(const QEvent& event) {
  if (!relay_.take(event)) return false;
  refresh();
  return true;
}

void ProgressView::Implementation::refresh() {
  const auto state = progress_ ? progress_->state() : ProgressState();
  showWords(state);
  if (isRunning(state)) showShare(*bar_, state);
  bar_->setVisible(isRunning(state));
}

void ProgressView::Implementation::showWords(const ProgressState& state) {
  const auto description = lineOf(state.localizedDescription);
  const auto addition = lineOf(state.localizedAdditionalDescription);
  description_->setText(description);
  addition_->setText(addition);
  const auto all = state.localizedDescription + "\n" + state.localizedAdditionalDescription;
  toolTip_ = wrapped(linesOf(all).trimmed());
  for (QWidget* widget : {static_cast<QWidget*>(&view_), static_cast<QWidget*>(bar_)}) {
    widget->setAccessibleName(description);
    widget->setAccessibleDescription(addition);
  }
}

bool ProgressView::Implementation::showToolTip(const QHelpEvent& event) const {
  if (toolTip_.isEmpty()) return false;
  QToolTip::showText(event.globalPos(), toolTip_, &view_);
  return true;
}

ProgressView::ProgressView(std::shared_ptr<const Progress> progress, QWidget* parent)
    : QWidget(parent), implementation_(std::make_unique<Implementation>(*this)) {
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  implementation_->addChildren();
  setProgress(std::move(progress));
}

ProgressView::~ProgressView() {
  prepareToEnd(*this);
}

std::shared_ptr<const Progress> ProgressView::progress() const {
  return implementation_->progress();
}

void ProgressView::setProgress(std::shared_ptr<const Progress> progress) {
  implementation_->setProgress(std::move(progress));
}

bool ProgressView::event(QEvent* event) {
  if (implementation_->take(*event)) return true;
  if (event->type() == QEvent::ToolTip &&
      implementation_->showToolTip(*static_cast<QHelpEvent*>(event)))
    return true;
  return QWidget::event(event);
}

}  // namespace kvl::qt
