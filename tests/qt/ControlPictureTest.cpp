// Segmented controls and progress as they are shown, compared with the pictures in docs/images.
// With KVL_WRITE_PICTURES=1 in the environment the tests write those pictures instead: look at each
// before it is kept.
#include "tests/qt/Patience.h"
#include "tests/support/PictureComparison.h"
#include "tests/support/QtApplication.h"

#include <local/qt.h>

#include <gmock/gmock.h>

#include <QTest>
#include <QVBoxLayout>

namespace {

using kvl::qt::ProgressView;
using kvl::qt::SegmentedControlView;
using kvltest::kPatience;
using kvltest::QtApplication;

constexpr int kTimeToDraw = 2'000;

constexpr std::string_view kStar =
    "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'><path d='M8 1l2.2 4.6 5 .7-3.6 "
    "3.5.9 5L8 12.4 3.5 14.8l.9-5L.8 6.3l5-.7z'/></svg>";
constexpr std::string_view kDisc =
    "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'><circle cx='8' cy='8' r='7' "
    "fill='#d9534f'/></svg>";

std::shared_ptr<kvl::Image> imageOf(std::string_view svg, bool isTemplate) {
  auto image = kvl::Image::imageWithData(kvl::Data::fromText(svg));
  image->setTemplate(isTemplate);
  return image;
}

std::shared_ptr<kvl::SegmentedControl> controlWith(std::vector<kvl::Segment> segments) {
  auto control = std::make_shared<kvl::SegmentedControl>();
  control->setSegments(std::move(segments));
  return control;
}

std::shared_ptr<kvl::SegmentedControl> words() {
  const auto menu = std::make_shared<kvl::Menu>();
  menu->addItem(kvl::MenuItem::itemWithTitle("Newest first"));
  return controlWith({{.label = "All"},
                      {.label = "Unread & new"},
                      {.enabled = false, .label = "Archive"},
                      {.label = "Sort", .menu = menu, .showsMenuIndicator = true}});
}

std::shared_ptr<kvl::SegmentedControl> icons() {
  return controlWith({{.image = imageOf(kStar, true), .toolTip = "Favourites"},
                      {.label = "Recording", .image = imageOf(kDisc, false)},
                      {.enabled = false, .label = "Stars", .image = imageOf(kStar, true)}});
}

std::shared_ptr<kvl::Progress> progress(std::int64_t completed, std::string words,
                                        std::string more) {
  return std::make_shared<kvl::Progress>(
      kvl::ProgressState{100, completed, std::move(words), std::move(more)});
}

// A window with each kind of control, the second segment of which has the focus.
class Window : public QWidget {
 public:
  Window() {
    auto* column = new QVBoxLayout(this);
    column->addWidget(words_, 0, Qt::AlignLeading);
    column->addWidget(new SegmentedControlView(icons(), this), 0, Qt::AlignLeading);
    column->addWidget(new ProgressView(progress(40, "Uploading…", "4 of 10 files"), this));
    column->addWidget(new ProgressView(
        progress(100, "Established", "Notarised for “https://service.example/local/”"), this));
    column->addWidget(new ProgressView(
        progress(75, "Reconnecting…", "The network connection was lost – service.example"), this));
    setFixedWidth(420);
  }

  void takeFocus() {
    // As keys bring it there, or it is not painted.
    QTest::keyClick(this, Qt::Key_Tab);
    words_->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
  }

 private:
  SegmentedControlView* words_ = new SegmentedControlView(words(), this);
};

QImage pictureOf(QWidget& window) {
  return window.grab().toImage();
}

void expectLooksLike(const char* name) {
  Window window;
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window, kPatience));
  window.takeFocus();
  const auto file = QStringLiteral(KVL_PICTURES "/controls-%1.png").arg(QLatin1String(name));
  if (qEnvironmentVariableIsSet("KVL_WRITE_PICTURES")) {
    QTest::qWait(kTimeToDraw);
    ASSERT_TRUE(pictureOf(window).save(file));
    return;
  }
  // The icons come when they have been drawn.
  std::string difference;
  const bool alike = QTest::qWaitFor(
      [&] {
        difference = kvltest::differenceOf(pictureOf(window), QImage(file));
        return difference.empty();
      },
      kPatience);
  EXPECT_TRUE(alike) << difference;
}

TEST(ControlPictureTest, LooksRightOnALightDesktop) {
  const QtApplication application;
  expectLooksLike("light");
}

TEST(ControlPictureTest, LooksRightOnADarkDesktop) {
  const QtApplication application({.dark = true});
  expectLooksLike("dark");
}

}  // namespace
