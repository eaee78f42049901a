#include "examples/qthost/FieldArea.h"

#include "examples/qthost/Texts.h"

#include <QFormLayout>
#include <QLabel>
#include <QScreen>
#include <QScrollBar>
#include <algorithm>
#include <utility>

namespace qthost {
namespace {

constexpr int kLongestLabel = 60;
constexpr int kLeastHeight = 60;

// Where the keyboard stops in a field, which may be made of several widgets.
QList<QWidget*> stopsIn(QWidget* field) {
  if (field->focusPolicy() & Qt::TabFocus) return {field};
  QList<QWidget*> stops;
  for (auto* part : field->findChildren<QWidget*>())
    if (part->focusPolicy() & Qt::TabFocus && part->focusProxy() == nullptr) stops.append(part);
  return stops;
}

}  // namespace

FieldArea::FieldArea(QWidget* parent)
    : QScrollArea(parent), rows_(new QFormLayout(new QWidget)), last_(this) {
  rows_->setContentsMargins(0, 0, 0, 0);
  setWidget(rows_->parentWidget());
  setWidgetResizable(true);
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::NoFocus);
}

void FieldArea::addRow(const QString& label, QWidget* field) {
  auto* words = new QLabel;
  words->setTextFormat(Qt::PlainText);
  words->setText(withoutMnemonic(lineOf(label.toStdString(), kLongestLabel)));
  words->setBuddy(field);
  rows_->addRow(words, field);
  for (auto* stop : stopsIn(field)) QWidget::setTabOrder(std::exchange(last_, stop), stop);
  updateGeometry();
}

QSize FieldArea::sizeHint() const {
  return bounded(widget()->sizeHint());
}

QSize FieldArea::minimumSizeHint() const {
  const QSize least = widget()->minimumSizeHint();
  return bounded({least.width() + verticalScrollBar()->sizeHint().width(),
                  std::min(least.height(), kLeastHeight)});
}

QSize FieldArea::bounded(QSize size) const {
  return size.boundedTo(screen()->availableSize() / 2);
}

}  // namespace qthost
