// Errors in message boxes.
#pragma once

#include "qt/GuiThread.h"

#include <local/platform/Error.h>
#include <local/platform/Workspace.h>

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <deque>
#include <memory>
#include <optional>

namespace kvl::qt {

// What a message box says.
struct ErrorTexts {
  QString text;
  QString informativeText;  // empty for none
};

// The error's description, and its failure reason where the description does not say it already.
// Neither is larger than a box can show: what is too long is cut, words too long are broken.
[[nodiscard]] ErrorTexts textsOf(const Error& error);

// Shows errors in message boxes, one at a time and without blocking; each belongs to the window
// that is active then. GUI thread.
class ErrorBoxes final : public QObject {
 public:
  // How many errors wait at most while one is shown.
  static constexpr std::size_t kMostWaiting = 20;

  ErrorBoxes() = default;
  // Takes the box away.
  ~ErrorBoxes() override;

  // An error that is shown, or waits to be, is not shown again. When too many wait, it is only one
  // line in the log.
  void show(const Error& error);

 private:
  void open(const Error& error);
  void forgetShown();
  void continueWithNext();

  QPointer<QMessageBox> box_;
  std::optional<Error> shown_;  // by the box
  std::deque<Error> waiting_;
};

// A presenter that shows errors in the boxes. On another thread it hands them over.
[[nodiscard]] ErrorPresenter errorPresenter(QPointer<ErrorBoxes> boxes,
                                            std::shared_ptr<GuiCalls> calls);

}  // namespace kvl::qt
