// A segmented control in a window of its own.
#pragma once

#include <local/qt/MenuView.h>
#include <local/qt/SegmentedControlView.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QLayout>
#include <QTest>
#include <QToolButton>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace kvltest {

// The buttons of the segments, in their order.
inline std::vector<QToolButton*> buttonsOf(const kvl::qt::SegmentedControlView& view) {
  std::vector<QToolButton*> buttons;
  if (view.layout() == nullptr) return buttons;
  for (int i = 0; i < view.layout()->count(); ++i)
    buttons.push_back(qobject_cast<QToolButton*>(view.layout()->itemAt(i)->widget()));
  return buttons;
}

class SegmentRow {
 public:
  explicit SegmentRow(std::vector<kvl::Segment> segments)
      : control(std::make_shared<kvl::SegmentedControl>()) {
    control->setSegments(std::move(segments));
    view = std::make_unique<kvl::qt::SegmentedControlView>(control);
    view->show();
    view->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(view.get(), kPatience));
  }

  [[nodiscard]] QToolButton& button(std::size_t index) const { return *buttonsOf(*view).at(index); }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto* button : buttonsOf(*view))
      names.push_back(button->accessibleName().toStdString());
    return names;
  }

  // Lets the view follow its control.
  void settle() const { QApplication::processEvents(); }
  // Presses a key where the focus is.
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const {
    ASSERT_NE(QApplication::focusWidget(), nullptr);
    QTest::keyClick(QApplication::focusWidget(), key, modifiers);
  }
  void click(std::size_t index) const { QTest::mouseClick(&button(index), Qt::LeftButton); }
  // The index of the segment with the focus; -1 for none.
  [[nodiscard]] int focused() const {
    const auto buttons = buttonsOf(*view);
    const auto found = std::ranges::find(buttons, QApplication::focusWidget());
    return found == buttons.end() ? -1 : static_cast<int>(found - buttons.begin());
  }

  std::shared_ptr<kvl::SegmentedControl> control;
  std::unique_ptr<kvl::qt::SegmentedControlView> view;
};

}  // namespace kvltest
