#include "tests/support/PlainImage.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Menu.h>
#include <local/platform/Mutex.h>
#include <local/platform/SegmentedControl.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvl::Menu;
using kvl::MenuItem;
using kvl::Observation;
using kvl::Semaphore;

constexpr std::chrono::seconds kPatience{60};

const std::vector<std::function<void(MenuItem&)>>& everySetter() {
  static const std::vector<std::function<void(MenuItem&)>> setters{
      [](MenuItem& item) { item.setTitle("a"); },
      [](MenuItem& item) { item.setAttributedTitle(kvl::AttributedText{}); },
      [](MenuItem& item) { item.setSubtitle("a"); },
      [](MenuItem& item) { item.setToolTip("a"); },
      [](MenuItem& item) { item.setKeyEquivalent("a"); },
      [](MenuItem& item) { item.setBadge(kvl::MenuItemBadge{1}); },
      [](MenuItem& item) { item.setImage(std::make_shared<kvltest::PlainImage>()); },
      [](MenuItem& item) { item.setState(MenuItem::State::on); },
      [](MenuItem& item) { item.setEnabled(false); },
      [](MenuItem& item) { item.setAction([](const std::shared_ptr<MenuItem>&) {}); },
      [](MenuItem& item) { item.setTarget(std::make_shared<int>(1)); },
      [](MenuItem& item) { item.setRepresentedObject("a"); },
      [](MenuItem& item) { item.setIdentifier("a"); },
      [](MenuItem& item) { item.setSubmenu(std::make_shared<Menu>()); },
  };
  return setters;
}

TEST(MenuObservationTest, TellsOfEveryPropertyOnceAfterItIsSet) {
  const auto item = MenuItem::itemWithTitle("Open");
  int calls = 0;
  const auto observation = item->observe([&] { ++calls; });
  int expected = 0;
  for (const auto& set : everySetter()) {
    set(*item);
    EXPECT_EQ(calls, ++expected);
  }
}

TEST(MenuObservationTest, HandlerRunsInsideTheSetterAndReadsTheNewValue) {
  const auto item = MenuItem::itemWithTitle("Open");
  std::vector<std::string> seen;
  const auto setter = std::this_thread::get_id();
  const auto observation = item->observe([&] {
    EXPECT_EQ(std::this_thread::get_id(), setter);
    seen.push_back(item->title());
  });
  item->setTitle("Close");
  item->setTitle("Close");
  EXPECT_EQ(seen, (std::vector<std::string>{"Close", "Close"}));
}

TEST(MenuObservationTest, HandlerMaySetTheItemAgain) {
  const auto item = MenuItem::itemWithTitle("0");
  int depth = 0;
  const auto observation = item->observe([&] {
    if (++depth < 5) item->setTitle(std::to_string(depth));
  });
  item->setEnabled(false);
  EXPECT_EQ(depth, 5);
  EXPECT_EQ(item->title(), "4");
}

TEST(MenuObservationTest, EachObserverIsTold) {
  const auto item = MenuItem::itemWithTitle("Open");
  int first = 0;
  int second = 0;
  const auto one = item->observe([&] { ++first; });
  auto two = item->observe([&] { ++second; });
  item->setTitle("a");
  two.end();
  item->setTitle("b");
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 1);
}

TEST(MenuObservationTest, MenuTellsOfItsListOfItemsOnly) {
  Menu menu;
  int calls = 0;
  const auto observation = menu.observe([&] { ++calls; });
  const auto item = MenuItem::itemWithTitle("Open");
  menu.addItem(item);
  EXPECT_EQ(calls, 1);
  item->setTitle("Close");
  menu.addItem(nullptr);
  EXPECT_EQ(calls, 1);
  menu.removeAllItems();
  EXPECT_EQ(calls, 2);
}

TEST(MenuObservationTest, ControlTellsOfEachChange) {
  kvl::SegmentedControl control;
  int calls = 0;
  const auto observation = control.observe([&] { ++calls; });
  control.setSegmentCount(2);
  control.setSegment(1, {.label = "b"});
  control.setSegments({});
  EXPECT_EQ(calls, 3);
}

TEST(MenuObservationTest, EndedInsideItsOwnHandlerItStaysSilent) {
  const auto item = MenuItem::itemWithTitle("Open");
  std::optional<Observation> observation;
  int calls = 0;
  const auto witness = std::make_shared<int>(1);
  observation = item->observe([&, witness] {
    ++calls;
    observation.reset();
  });
  item->setTitle("a");
  item->setTitle("b");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(witness.use_count(), 1) << "the handler is still there";
}

TEST(MenuObservationTest, EndingWaitsForTheHandlerThatRunsOnAnotherThread) {
  const auto item = MenuItem::itemWithTitle("Open");
  Semaphore entered;
  Semaphore leave;
  std::atomic<bool> left = false;
  auto observation = item->observe([&] {
    entered.signal();
    leave.wait();
    left = true;
  });
  std::jthread changer([&] { item->setTitle("a"); });
  ASSERT_TRUE(entered.waitFor(kPatience));
  std::jthread releaser([&] { leave.signal(); });
  observation.end();
  EXPECT_TRUE(left);
}

TEST(MenuObservationTest, HandlersOnTwoThreadsMayBothEndIt) {
  const auto item = MenuItem::itemWithTitle("Open");
  std::atomic<int> inside = 0;
  Semaphore both;
  auto observation = std::make_shared<Observation>();
  kvl::Mutex mutex;
  *observation = item->observe([&] {
    if (++inside == 2) {
      both.signal();
      both.signal();
    }
    EXPECT_TRUE(both.waitFor(kPatience));
    kvl::MutexLock lock(mutex);
    observation->end();
  });
  {
    std::jthread one([&] { item->setTitle("a"); });
    std::jthread two([&] { item->setTitle("b"); });
  }
  item->setTitle("c");
  EXPECT_EQ(inside, 2);
}

TEST(MenuObservationTest, HandleMayOutliveItem) {
  auto item = MenuItem::itemWithTitle("Open");
  const auto held = std::make_shared<int>();
  auto observation = item->observe([held] {});
  item.reset();
  EXPECT_EQ(held.use_count(), 2);
  observation.end();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(MenuObservationTest, ObservationDoesNotKeepTheItem) {
  auto item = MenuItem::itemWithTitle("Open");
  const std::weak_ptr<MenuItem> watched = item;
  const auto observation = item->observe([] {});
  item.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(MenuObservationTest, ItemMayGoInsideTheHandlerOfItsChange) {
  auto item = MenuItem::itemWithTitle("Open");
  const auto kept = std::make_shared<Menu>();
  kept->addItem(item);
  const auto observation = item->observe([&] {
    kept->removeAllItems();
    item.reset();
  });
  const auto changed = item;
  changed->setTitle("a");
  EXPECT_EQ(changed.use_count(), 1);
}

TEST(MenuObservationTest, ManyThreadsMayChangeReadAndObserveOneItem) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const auto item = MenuItem::itemWithTitle("Open");
  std::atomic<int> calls = 0;
  const auto observation = item->observe([&] { ++calls; });
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
          const auto passing = item->observe([&] { static_cast<void>(item->isEnabled()); });
          item->setTitle(std::to_string(round));
          EXPECT_FALSE(item->shownTitle().empty());
        }
      });
    }
  }
  EXPECT_EQ(calls, kThreads * kRounds);
}

TEST(MenuObservationTest, ManyThreadsMayFillAndReadOneMenu) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 100;
  Menu menu;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
          menu.addItem(MenuItem::itemWithTitle("a"));
          EXPECT_FALSE(menu.items().empty());
        }
      });
    }
  }
  EXPECT_EQ(menu.itemCount(), static_cast<std::size_t>(kThreads * kRounds));
}

}  // namespace
