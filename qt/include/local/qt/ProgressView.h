/// @file
/// Progress on the screen.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Progress.h>

#include <QWidget>
#include <memory>

class QEvent;

namespace kvl::qt {

/// Shows a `kvl::Progress` and follows it: its two texts and a bar. It is made for a status bar and
/// is one line high. Texts that are too long are elided; the tool tip has all of them. What a
/// record says to be absent, "(null)", is not shown.
///
/// The bar is hidden when all units are completed, and when there is nothing to show: no total and
/// no text. It is busy, without a share, while the total is unknown (0 or less) and while a record
/// of a single unit is not completed, since that tells only whether it is.
///
/// The record may change on any thread; the view follows on the GUI thread. View and record may be
/// destroyed in any order; the view holds its record.
class KVL_EXPORT ProgressView : public QWidget {
  Q_OBJECT

 public:
  /// @param progress null for none
  explicit ProgressView(std::shared_ptr<const Progress> progress, QWidget* parent = nullptr);
  ~ProgressView() override;

  /// What the view shows; null for none.
  [[nodiscard]] std::shared_ptr<const Progress> progress() const;
  /// Shows `progress` instead of the one before; null shows none.
  void setProgress(std::shared_ptr<const Progress> progress);

 protected:
  /// Follows the record, and shows the tool tip.
  bool event(QEvent* event) override;

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
