// One line of text that gives way.
#pragma once

#include <QFont>
#include <QFontMetrics>
#include <QString>
#include <QWidget>

class QPainter;

namespace kvl::qt {

// The width of a line that is not elided, in whole device-independent pixels.
[[nodiscard]] int widthOf(const QString& line, const QFont& font);

// Paints a line as its own letters run, whichever way the layout runs, and elided at its end.
// `alignment` is absolute; `flags` are further ones of `QPainter::drawText`. `metrics` are those of
// the painter's font.
void paintLine(QPainter& painter, const QRect& rect, const QString& line, Qt::Alignment alignment,
               const QFontMetrics& metrics, int flags = 0);

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

}  // namespace kvl::qt
