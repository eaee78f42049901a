// One segment of a segmented control on the screen.
#pragma once

#include "qt/menu/MenuIcons.h"

#include <local/platform/SegmentedControl.h>
#include <local/qt/MenuView.h>

#include <QString>
#include <QToolButton>
#include <memory>

namespace kvl::qt {

// A button that is joined to its neighbours. GUI thread.
class SegmentButton final : public QToolButton {
  Q_OBJECT

 public:
  // Which sides it shares with neighbours, as seen on the screen.
  struct Joints {
    bool left = false;
    bool right = false;
    friend bool operator==(const Joints&, const Joints&) = default;
  };

  explicit SegmentButton(QWidget* parent);

  // What has not changed is left alone.
  void display(const Segment& segment);
  void setJoints(Joints joints);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 Q_SIGNALS:
  void focused();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;

 private:
  // What lies side by side in the middle of the button, in the direction of the layout.
  struct Content {
    QRect icon;
    QRect label;
    QRect indicator;
  };

  void displayWords(const Segment& segment);
  void displayMenu(const std::shared_ptr<Menu>& menu);
  void displayImage(const Segment& segment);

  [[nodiscard]] QSize contentSize(int labelWidth) const;
  [[nodiscard]] Content content() const;
  void paintPanel(QPainter& painter) const;
  void paintContent(QPainter& painter) const;
  void paintIcon(QPainter& painter, const QRect& box, const QColor& colour) const;

  QString label_;
  bool showsIndicator_ = false;
  Joints joints_;
  MenuView* menuView_ = nullptr;
  std::shared_ptr<Image> image_;
  ImageScaling scaling_ = ImageScaling::proportionallyDown;
  std::unique_ptr<MenuIcons> icons_;
};

}  // namespace kvl::qt
