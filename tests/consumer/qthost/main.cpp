// A Qt host outside the tree, which takes signals, casts and virtual calls across the border of
// the binding's library. It needs no display.

#include <local/local.h>
#include <local/qt.h>

#include <QAction>
#include <QApplication>
#include <cstdlib>
#include <iostream>
#include <memory>

namespace {

void require(bool condition, const char* what) {
  if (condition) return;
  std::cerr << "not so: " << what << std::endl;
  std::exit(1);
}

class HostsMenu final : public kvl::qt::MenuView {
 public:
  using kvl::qt::MenuView::MenuView;
};

}  // namespace

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  const kvl::qt::Integration integration;

  const auto menu = std::make_shared<kvl::Menu>();
  const auto item = kvl::MenuItem::itemWithTitle("Open & close");
  int sent = 0;
  item->setAction([&sent](const std::shared_ptr<kvl::MenuItem>&) { ++sent; });
  menu->addItem(item);
  HostsMenu view(menu);
  int chosen = 0;
  QObject::connect(&view, &kvl::qt::MenuView::itemChosen,
                   [&chosen](const std::shared_ptr<kvl::MenuItem>&) { ++chosen; });

  QObject& object = view;
  require(qobject_cast<kvl::qt::MenuView*>(&object) == &view, "a view can be told by its class");
  require(view.actionOf(*item) != nullptr, "an item has an action");
  view.actionOf(*item)->trigger();
  require(sent == 1 && chosen == 1, "a chosen item sends its action");

  const kvl::qt::ProgressView progress(std::make_shared<kvl::Progress>(kvl::ProgressState{}));
  const kvl::qt::SegmentedControlView segments(std::make_shared<kvl::SegmentedControl>());
  require(progress.sizeHint().isValid() && segments.sizeHint().isValid(), "views have a size");
  require(kvl::qt::qString("\u00e4") == QChar(0xe4), "texts are converted");
  std::cout << "the Qt host works\n";
}
