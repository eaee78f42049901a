// What came of a request, in words, and where the user reads it.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>

#include <QLabel>
#include <QString>
#include <optional>

namespace qthost {

struct Outcome {
  bool isGood = false;
  QString text;  // "200 OK", or what went wrong
};

// A status of 300 and more says more than the error of what came with it.
[[nodiscard]] Outcome outcomeOf(const kvl::URLResponseRef& response,
                                const std::optional<kvl::Error>& error);

// A line of text that takes no place while there is nothing to say. It stands at the right where it
// runs from right to left, or all of the window does.
class Notice : public QLabel {
  Q_OBJECT

 public:
  explicit Notice(QWidget* parent = nullptr);

  void showOutcome(const QString& text);
  void showError(const QString& text);
};

}  // namespace qthost
