/// @file
/// Segments side by side on the screen.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/SegmentedControl.h>

#include <QWidget>
#include <memory>

class QEvent;

namespace kvl::qt {

/// A row of joined buttons that shows a `kvl::SegmentedControl` and follows it. A segment with a
/// menu opens it.
///
/// Keys: Tab reaches the row as a whole. Left, Right, Home and End go from one enabled segment to
/// the next, in the direction of the layout. Space and Enter choose a segment; Down opens its menu.
/// Screen readers find a group of buttons, which are called after their labels, or after their tool
/// tips where there is no label.
///
/// Labels are shown as they stand, on one line; what is too long is elided. Images are fitted into
/// a square as high as menu icons, and are drawn on worker threads.
///
/// The model may change on any thread; the view follows on the GUI thread. View and model may be
/// destroyed in any order; the view holds its model.
class KVL_EXPORT SegmentedControlView : public QWidget {
  Q_OBJECT

 public:
  /// @param control null for none
  explicit SegmentedControlView(std::shared_ptr<SegmentedControl> control,
                                QWidget* parent = nullptr);
  ~SegmentedControlView() override;

  /// What the view shows; null for none.
  [[nodiscard]] std::shared_ptr<SegmentedControl> control() const;
  /// Shows `control` instead of the one before; null shows none.
  void setControl(std::shared_ptr<SegmentedControl> control);

  /// Room for a few segments: when there is less than all need, they are narrower than they wish.
  [[nodiscard]] QSize minimumSizeHint() const override;

 Q_SIGNALS:
  /// The user has chosen a segment that has no menu. The view may be destroyed meanwhile. For a
  /// control that mirrors a menu (see `KVLEncoding::applyMenu`) `index` is that of the item.
  void segmentChosen(int index);

 protected:
  /// Follows what the view is told of while the event loop runs.
  bool event(QEvent* event) override;
  /// Follows the direction of the layout.
  void changeEvent(QEvent* event) override;
  /// The keys named above; others are passed on.
  void keyPressEvent(QKeyEvent* event) override;

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
