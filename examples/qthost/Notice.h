// How something went, in place.
#pragma once

#include <QLabel>

namespace qthost {

// A line of text that takes no place while there is nothing to say.
class Notice : public QLabel {
  Q_OBJECT

 public:
  explicit Notice(QWidget* parent = nullptr);

  void showOutcome(const QString& text);
  void showError(const QString& text);
};

}  // namespace qthost
