// Menus from descriptions, beside the same items made from constants in the same run.
#include "bench/Measurement.h"
#include "platform/formatting/LocalisedTime.h"
#include "platform/formatting/UserLocale.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"

#include <local/KVLEncodingLocale.h>
#include <local/KVLEncodingMenus.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace kvlbench {
namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Menu;
using kvl::MenuItem;

constexpr int kItems = 10'000;
constexpr std::int64_t kSeconds = 3725;
constexpr const char* kDate = "2024-05-01T14:34:56Z";
const kvl::Date kMoment{736266896};  // the same

struct Handling {
  kvl::MenuAction action{[](const std::shared_ptr<MenuItem>&) {}};
  std::shared_ptr<int> target = std::make_shared<int>(1);
};

const Dictionary& form() {
  static const Dictionary form{{"id", "korvale.menu.item"}, {"action", "/menu/select?item=1"}};
  return form;
}

Dictionary description() {
  return {{"type", "item"}, {"text", "Synchronise with the service"}, {"shortcut", "s"},
          {"updates", 3},   {"tooltip", "Sends what has changed"},    {"state", "on"},
          {"form", form()}};
}

Dictionary describedWithSubtext() {
  auto result = description();
  result.set("subtext", "Saved %D, again in %L");
  result.set("locale",
             Array{Dictionary{{"find", "%D"}, {"type", "date time"}, {"date", kDate}},
                   Dictionary{{"find", "%L"}, {"type", "duration"}, {"seconds", kSeconds}}});
  return result;
}

// What a host would write that has no descriptions.
std::shared_ptr<MenuItem> itemFromConstants(const Handling& handling) {
  auto item = MenuItem::itemWithTitle("Synchronise with the service");
  item->setKeyEquivalent("s");
  item->setToolTip("Sends what has changed");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  item->setState(MenuItem::State::on);
  item->setEnabled(true);
  item->setAction(handling.action);
  item->setTarget(handling.target);
  item->setRepresentedObject(form());
  item->setIdentifier("korvale.menu.item");
  return item;
}

std::string formattedSubtitle() {
  using namespace kvl::formatting;
  const auto date = localisedDate(kMoment, DateStyle::dateAndTime, userTimeLocale());
  return "Saved " + date.value_or("") + ", again in " + KVLEncoding::duration(kSeconds);
}

std::shared_ptr<MenuItem> itemWithFormattedSubtitle(const Handling& handling) {
  auto item = itemFromConstants(handling);
  item->setSubtitle(formattedSubtitle());
  return item;
}

// The time until the menu is there; its end is not measured.
template <class Fill>
double timeOfFilling(Fill fill) {
  Menu menu;
  const double start = cpuSeconds();
  fill(menu);
  return cpuSeconds() - start;
}

// times_constants: what the builder costs in multiples of the constants.
template <class Constant>
void build(benchmark::State& state, const Dictionary& described, Constant constant) {
  setenv("LC_ALL", "en_US.UTF-8", 1);
  const Handling handling;
  const Array descriptions(std::vector<kvl::Value>(kItems, described));
  const auto times = measure(
      state,
      [&] {
        return timeOfFilling([&](Menu& menu) {
          for (int i = 0; i < kItems; ++i) menu.addItem(constant(handling));
        });
      },
      [&] {
        return timeOfFilling([&](Menu& menu) {
          KVLEncoding::addMenuItems(descriptions, menu, nullptr, handling.action, handling.target);
        });
      });
  const double items = kItems * static_cast<double>(state.iterations());
  state.counters["times_constants"] = times.subject / times.peer;
  state.counters["us_per_item"] = times.subject * 1e6 / items;
  state.counters["us_per_constant"] = times.peer * 1e6 / items;
}

void menuWithSubtitles(benchmark::State& state) {
  build(state, describedWithSubtext(), itemWithFormattedSubtitle);
}
BENCHMARK(menuWithSubtitles)->UseManualTime()->Unit(benchmark::kMillisecond);

void menuWithoutSubtitles(benchmark::State& state) {
  build(state, description(), itemFromConstants);
}
BENCHMARK(menuWithoutSubtitles)->UseManualTime()->Unit(benchmark::kMillisecond);

// times_reading: what building the items costs in multiples of reading their JSON.
void menuBesideItsJSON(benchmark::State& state) {
  constexpr int kRead = 1000;
  setenv("LC_ALL", "en_US.UTF-8", 1);
  const Handling handling;
  const kvl::Value items(Array(std::vector<kvl::Value>(kRead, description())));
  const auto text = *kvl::JSONFromValue(items, nullptr);
  const Array descriptions = *kvl::valueFromJSON(text, nullptr)->array();
  const auto times = measure(
      state,
      [&] {
        const double start = cpuSeconds();
        benchmark::DoNotOptimize(kvl::valueFromJSON(text, nullptr));
        return cpuSeconds() - start;
      },
      [&] {
        return timeOfFilling([&](Menu& menu) {
          KVLEncoding::addMenuItems(descriptions, menu, nullptr, handling.action, handling.target);
        });
      });
  state.counters["times_reading"] = times.subject / times.peer;
}
BENCHMARK(menuBesideItsJSON)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kvlbench
