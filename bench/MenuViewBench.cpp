// Opening a menu of a thousand items, beside a plain menu of a thousand titles in the same run.
#include "bench/Measurement.h"
#include "qt/menu/MenuContents.h"

#include <local/platform/Menu.h>
#include <local/qt/MenuView.h>

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QApplication>
#include <QMenu>
#include <QPaintEvent>
#include <QStyleFactory>
#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace kvlbench {
namespace {

using kvl::Menu;
using kvl::MenuItem;
using kvl::qt::MenuContents;
using kvl::qt::MenuView;

constexpr int kItems = 1000;

std::string titleOf(int i) {
  return "Item number " + std::to_string(i);
}

std::shared_ptr<kvl::Image> icon(int i) {
  const std::string colour = std::to_string(100 + i % 900);
  const std::string text =
      "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'>"
      "<rect width='16' height='16' fill='#" +
      colour + "'/></svg>";
  return kvl::Image::imageWithData(kvl::Data::fromText(text));
}

std::shared_ptr<Menu> plainTitles() {
  auto menu = std::make_shared<Menu>();
  for (int i = 0; i < kItems; ++i) menu->addItem(MenuItem::itemWithTitle(titleOf(i)));
  return menu;
}

std::shared_ptr<Menu> everything() {
  auto menu = plainTitles();
  const auto items = menu->items();
  for (int i = 0; i < kItems; ++i) {
    auto& item = *items[i];
    item.setSubtitle("With a second line " + std::to_string(i));
    item.setKeyEquivalent(std::string(1, static_cast<char>('a' + i % 26)));
    item.setBadge(kvl::MenuItemBadge::updatesWithCount(i));
    item.setState(i % 2 ? MenuItem::State::on : MenuItem::State::mixed);
    item.setImage(icon(i));
  }
  return menu;
}

std::unique_ptr<QMenu> plainMenu() {
  auto menu = std::make_unique<QMenu>();
  for (int i = 0; i < kItems; ++i) menu->addAction(QString::fromStdString(titleOf(i)));
  return menu;
}

// Whether a widget has been painted since it was asked last.
class Paintings final : public QObject {
 public:
  explicit Paintings(QWidget& widget) { widget.installEventFilter(this); }

  bool eventFilter(QObject*, QEvent* event) override {
    painted_ |= event->type() == QEvent::Paint;
    return false;
  }
  [[nodiscard]] bool take() { return std::exchange(painted_, false); }

 private:
  bool painted_ = false;
};

// Until the menu is on the screen; closing it is not measured.
double timeOfOpening(QMenu& menu) {
  Paintings paintings(menu);
  const double start = cpuSeconds();
  menu.popup(QPoint(10, 10));
  while (!paintings.take()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  const double time = cpuSeconds() - start;
  menu.close();
  QCoreApplication::processEvents();
  return time;
}

// Of those entries that are on the screen; asking for others would draw them.
bool hasIcons(const MenuView& view) {
  const auto* contents = MenuContents::of(&view);
  return std::ranges::all_of(view.actions(), [&](QAction* action) {
    const auto* entry = contents->entry(action);
    return !entry->image || !view.rect().intersects(view.actionGeometry(action)) ||
           !contents->icon(*entry).isNull();
  });
}

// Icons are drawn when they are first seen.
void drawIcons(MenuView& view) {
  view.popup(QPoint(10, 10));
  while (!hasIcons(view)) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  view.close();
  QCoreApplication::processEvents();
}

template <class Build>
double timeOfBuilding(Build build) {
  const double start = cpuSeconds();
  const auto menu = build();
  const double built = cpuSeconds() - start;
  return built + timeOfOpening(*menu);
}

void report(benchmark::State& state, const Times& times) {
  state.counters["times_plain"] = times.subject / times.peer;
  state.counters["us_per_item"] =
      times.subject * 1e6 / (kItems * static_cast<double>(state.iterations()));
}

// times_plain: what it costs in multiples of the plain menu. Here of menus that were open before,
// and whose icons have come.
void open(benchmark::State& state, const std::shared_ptr<Menu>& model) {
  const auto plain = plainMenu();
  MenuView view(model);
  drawIcons(view);
  timeOfOpening(*plain);
  timeOfOpening(view);
  report(
      state,
      measure(state, [&] { return timeOfOpening(*plain); }, [&] { return timeOfOpening(view); }));
}

// From nothing to what the user sees, as a host pays for it: this is what costs at most twice as
// much as the plain menu, with plain titles.
void buildAndOpen(benchmark::State& state, const std::shared_ptr<Menu>& model) {
  report(state,
         measure(
             state, [] { return timeOfBuilding(plainMenu); },
             [&] { return timeOfBuilding([&] { return std::make_unique<MenuView>(model); }); }));
}

void openPlainTitles(benchmark::State& state) {
  open(state, plainTitles());
}
BENCHMARK(openPlainTitles)->UseManualTime()->Unit(benchmark::kMillisecond);

void openEverything(benchmark::State& state) {
  open(state, everything());
}
BENCHMARK(openEverything)->UseManualTime()->Unit(benchmark::kMillisecond);

void buildPlainTitles(benchmark::State& state) {
  buildAndOpen(state, plainTitles());
}
BENCHMARK(buildPlainTitles)->UseManualTime()->Unit(benchmark::kMillisecond);

void buildEverything(benchmark::State& state) {
  buildAndOpen(state, everything());
}
BENCHMARK(buildEverything)->UseManualTime()->Unit(benchmark::kMillisecond);

int run(int count, char** arguments) {
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  setenv("LC_ALL", "en_US.UTF-8", 1);
  const QApplication application(count, arguments);
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("fusion")));
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace
}  // namespace kvlbench

int main(int count, char** arguments) {
  return kvlbench::run(count, arguments);
}
