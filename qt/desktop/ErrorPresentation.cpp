#include "qt/desktop/ErrorPresentation.h"

#include "qt/PlainText.h"

#include <local/platform/Log.h>

#include <QApplication>
#include <QLabel>
#include <QTextBoundaryFinder>
#include <QThread>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

// More lines would make the box higher than small screens.
constexpr qsizetype kMostLines = 12;
// In UTF-16 code units. Longer ones would not fit into the box; digests of 256 bits do.
constexpr qsizetype kLongestWord = 64;
constexpr QChar kEllipsis(0x2026);

QString fewLines(const QString& text) {
  const QString kept = text.section(QLatin1Char('\n'), 0, kMostLines - 1);
  return kept.size() < text.size() ? kept + kEllipsis : kept;
}

// Paths and addresses are left alone where they can be broken by themselves.
QString withShortWords(const QString& text) {
  QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
  return withBreaks(text, kLongestWord, [&](qsizetype i) {
    finder.setPosition(i);
    return finder.isAtBoundary();
  });
}

QString shownText(const std::string& text) {
  return withShortWords(fewLines(linesOf(text).trimmed()));
}

void showAsPlainText(QMessageBox& box) {
  box.setTextFormat(Qt::PlainText);
  const auto labels = box.findChildren<QLabel*>();
  for (auto* label : labels) label->setTextFormat(Qt::PlainText);
}

}  // namespace

ErrorTexts textsOf(const Error& error) {
  const std::string description = error.localizedDescription();
  const std::string reason = error.localizedFailureReason().value_or("");
  const bool said = description.find(reason) != std::string::npos;
  return {shownText(description), said ? QString() : shownText(reason)};
}

ErrorBoxes::~ErrorBoxes() {
  if (box_) box_->disconnect(this);
  delete box_.data();
}

void ErrorBoxes::show(const Error& error) {
  if (shown_ == error || std::ranges::find(waiting_, error) != waiting_.end()) return;
  if (!shown_ && waiting_.empty()) return open(error);
  if (waiting_.size() >= kMostWaiting)
    return log(LogCategory::desktop, LogLevel::warning, "error not shown: %@", error);
  waiting_.push_back(error);
}

void ErrorBoxes::open(const Error& error) {
  shown_ = error;
  const auto texts = textsOf(error);
  box_ = new QMessageBox(QMessageBox::Warning, QApplication::applicationDisplayName(), texts.text,
                         QMessageBox::Ok, QApplication::activeWindow());
  box_->setInformativeText(texts.informativeText);
  showAsPlainText(*box_);
  box_->setAttribute(Qt::WA_DeleteOnClose);
  connect(box_, &QObject::destroyed, this, &ErrorBoxes::forgetShown);
  // Queued: the window that the box belongs to may be about to be destroyed together with it.
  connect(box_, &QObject::destroyed, this, &ErrorBoxes::continueWithNext, Qt::QueuedConnection);
  box_->open();
}

void ErrorBoxes::forgetShown() {
  shown_.reset();
}

void ErrorBoxes::continueWithNext() {
  if (shown_ || waiting_.empty()) return;
  const Error next = waiting_.front();
  waiting_.pop_front();
  open(next);
}

ErrorPresenter errorPresenter(QPointer<ErrorBoxes> boxes, std::shared_ptr<GuiCalls> calls) {
  return [boxes = std::move(boxes), calls = std::move(calls),
          gui = QThread::currentThread()](const Error& error) {
    const auto show = [boxes, error] {
      if (boxes) return boxes->show(error);
      log(LogCategory::desktop, LogLevel::warning, "error not shown: %@", error);
    };
    if (QThread::currentThread() == gui) return show();
    if (!calls->handOver(show))
      log(LogCategory::desktop, LogLevel::warning, "error not shown: %@", error);
  };
}

}  // namespace kvl::qt
