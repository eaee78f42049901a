// A line that shows a progress: its words, which give way where there is little room, and a bar.
#include "qt/GuiThread.h"
#include "qt/PlainText.h"
#include "qt/controls/Painting.h"
#include "qt/controls/WidgetTeardown.h"

#include <local/platform/Log.h>
#include <local/qt/Conversions.h>
#include <local/qt/ProgressView.h>

#include <QEvent>
#include <QHBoxLayout>
#include <QHelpEvent>
#include <QPainter>
#include <QProgressBar>
#include <QStringList>
#include <QStyle>
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
constexpr QLatin1Char kLineFeed('\n');

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

// Of a text for people. What is absent prints as a text of its own in a record, which is left out
// together with the dash before or after it.
QStringList shownLines(std::string_view text) {
  static const QString kDash = QStringLiteral(" \u2013 ");
  QStringList lines;
  for (const QString& line : linesOf(text).split(kLineFeed)) {
    QStringList parts = line.split(kDash);
    const auto absent = parts.removeAll(qString(kNullText));
    if (absent == 0 || !parts.isEmpty()) lines.append(parts.join(kDash));
  }
  return lines;
}

QString toolTipOf(const QStringList& lines) {
  QStringList parts;
  for (const QString& line : lines) parts.append(isolated(line));
  return wrapped(parts.join(kLineFeed).trimmed());
}

void showShare(QProgressBar& bar, const ProgressState& state) {
  const bool known = isShareKnown(state);
  const double share = std::clamp(state.fractionCompleted(), 0.0, 1.0);
  bar.setRange(0, known ? kParts : 0);
  bar.setValue(known ? static_cast<int>(share * kParts) : 0);
}

// In device-independent pixels. Windows do not become wider for longer texts.
constexpr int kWidestWish = 400;
// How many letters there is room for at least.
constexpr int kFewestPrimaryLetters = 30;
constexpr int kFewestSecondaryLetters = 6;
// How much of the text's colour secondary text keeps.
constexpr double kSecondaryShare = 0.65;

// As wide as its text if there is room, else elided. GUI thread.
class ElidedText final : public QWidget {
 public:
  // Secondary text is paler and gives way first.
  enum class Tone { primary, secondary };

  ElidedText(Tone tone, QWidget* parent);

  // Plain text on one line.
  void setText(const QString& text);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  const Tone tone_;
  QString text_;
};

ElidedText::ElidedText(Tone tone, QWidget* parent) : QWidget(parent), tone_(tone) {
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  hide();
}

void ElidedText::setText(const QString& text) {
  if (text == text_) return;
  text_ = text;
  setVisible(!text.isEmpty());
  updateGeometry();
  update();
}

QSize ElidedText::sizeHint() const {
  return {std::min(widthOf(text_, font()), kWidestWish), fontMetrics().height()};
}

QSize ElidedText::minimumSizeHint() const {
  const auto metrics = fontMetrics();
  const int letters = tone_ == Tone::primary ? kFewestPrimaryLetters : kFewestSecondaryLetters;
  return QSize(letters * metrics.averageCharWidth(), metrics.height()).boundedTo(sizeHint());
}

void ElidedText::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const auto text = palette().color(QPalette::WindowText);
  painter.setPen(tone_ == Tone::primary
                     ? text
                     : tonedDown(text, palette().color(QPalette::Window), kSecondaryShare));
  const auto side = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft);
  paintLine(painter, rect(), text_, side | Qt::AlignVCenter, painter.fontMetrics());
}

void ElidedText::changeEvent(QEvent* event) {
  if (event->type() == QEvent::FontChange) updateGeometry();
  QWidget::changeEvent(event);
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
  const QStringList additions = shownLines(state.localizedAdditionalDescription);
  const auto description = lineOf(state.localizedDescription);
  const auto addition = additions.join(QLatin1Char(' '));
  description_->setText(description);
  addition_->setText(addition);
  toolTip_ = toolTipOf(shownLines(state.localizedDescription) + additions);
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
  markHiddenWithoutApplication(*this);
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
