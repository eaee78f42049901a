/// @file
/// What came of something, in words, where the user has done it.
#pragma once

#include <local/platform/Export.h>

#include <QLabel>
#include <QString>

namespace kvl::qt {

/// A plain text that takes no place while there is nothing to say. It stands at the right where it
/// runs from right to left, or all of the window does.
class KVL_EXPORT Notice : public QLabel {
  Q_OBJECT

 public:
  /// Hidden until there is something to say.
  explicit Notice(QWidget* parent = nullptr);
  ~Notice() override;

  /// Shows `text` in the usual colour; an empty one takes the notice away.
  void showOutcome(const QString& text);
  /// The same in a colour of its own, on a light and on a dark ground.
  void showError(const QString& text);
};

}  // namespace kvl::qt
