#include "tests/qt/Patience.h"
#include "tests/support/QtApplication.h"
#include "tests/support/Sanitized.h"

#include <local/qt/GuiThread.h>

#include <gmock/gmock.h>

#include <QEventLoop>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kvl::qt::queueOf;
using kvltest::kPatience;
using kvltest::QtApplication;

constexpr int kBlocks = kvltest::kSanitized ? 500 : 5000;

// Tells on which thread it is destroyed.
class DestructionTold {
 public:
  explicit DestructionTold(std::atomic<std::thread::id>& where) : where_(where) {}
  DestructionTold(const DestructionTold&) = delete;
  DestructionTold& operator=(const DestructionTold&) = delete;
  ~DestructionTold() { where_ = std::this_thread::get_id(); }

 private:
  std::atomic<std::thread::id>& where_;
};

// A thread that runs Qt's loop, and an object that lives there.
class ObjectElsewhere {
 public:
  ObjectElsewhere() {
    object_->moveToThread(&thread_);
    thread_.start();
  }
  ~ObjectElsewhere() {
    thread_.quit();
    thread_.wait();
  }

  [[nodiscard]] const std::shared_ptr<kvl::DispatchQueue>& queue() const { return queue_; }

 private:
  QThread thread_;
  const std::unique_ptr<QObject> object_ = std::make_unique<QObject>();
  const std::shared_ptr<kvl::DispatchQueue> queue_ = queueOf(*object_);
};

TEST(ObjectQueueTest, BlocksOfManyThreadsRunOnTheObjectsThreadInTheirOrder) {
  const QtApplication application;
  QObject object;
  const auto queue = queueOf(object);
  std::vector<std::vector<int>> seen(10);
  std::vector<std::thread> threads;
  int total = 0;
  for (auto& own : seen) {
    threads.emplace_back([&, queue] {
      for (int i = 0; i < kBlocks; ++i) {
        queue->async([&, i] {
          EXPECT_EQ(QThread::currentThread(), object.thread());
          own.push_back(i);
          ++total;
        });
      }
    });
  }
  EXPECT_TRUE(QTest::qWaitFor([&] { return total == 10 * kBlocks; }, kPatience));
  for (auto& thread : threads) thread.join();
  for (const auto& own : seen) EXPECT_TRUE(std::ranges::is_sorted(own));
}

TEST(ObjectQueueTest, NothingRunsInsideTheCall) {
  const QtApplication application;
  QObject object;
  bool hasRun = false;
  queueOf(object)->async([&] { hasRun = true; });
  EXPECT_FALSE(hasRun);
  EXPECT_TRUE(QTest::qWaitFor([&] { return hasRun; }, kPatience));
}

TEST(ObjectQueueTest, AnObjectHasOneQueue) {
  const QtApplication application;
  QObject object;
  QObject other(&object);
  EXPECT_EQ(queueOf(object), queueOf(object));
  EXPECT_NE(queueOf(object), queueOf(other));
}

TEST(ObjectQueueTest, AnObjectThatMovesTakesItsBlocksAlong) {
  const QtApplication application;
  auto object = std::make_unique<QObject>();
  const auto queue = queueOf(*object);
  QThread thread;
  std::atomic<QThread*> where = nullptr;
  queue->async([&] { where = QThread::currentThread(); });
  object->moveToThread(&thread);
  thread.start();
  EXPECT_TRUE(QTest::qWaitFor([&] { return where == &thread; }, kPatience));
  thread.quit();
  thread.wait();
}

TEST(ObjectQueueTest, WhatWaitsGoesWithTheObject) {
  const QtApplication application;
  std::atomic<std::thread::id> where;
  auto object = std::make_unique<QObject>();
  const auto queue = queueOf(*object);
  queue->async([told = std::make_shared<DestructionTold>(where)] { ADD_FAILURE(); });
  EXPECT_EQ(where, std::thread::id());
  object.reset();
  EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(ObjectQueueTest, WhatComesTooLateGoesOnTheThreadThatBringsIt) {
  const QtApplication application;
  std::atomic<std::thread::id> where;
  auto object = std::make_unique<QObject>();
  const auto queue = queueOf(*object);
  object.reset();
  std::thread::id poster;
  std::thread([&] {
    poster = std::this_thread::get_id();
    queue->async([told = std::make_shared<DestructionTold>(where)] { ADD_FAILURE(); });
    EXPECT_EQ(where, poster);
  }).join();
  EXPECT_EQ(where, poster);
}

TEST(ObjectQueueTest, AnObjectThatIsDestroyedByABlockRunsNoOther) {
  const QtApplication application;
  auto object = std::make_unique<QObject>();
  const auto queue = queueOf(*object);
  queue->async([&] { object.reset(); });
  queue->async([] { ADD_FAILURE(); });
  EXPECT_TRUE(QTest::qWaitFor([&] { return object == nullptr; }, kPatience));
  QCoreApplication::processEvents();
}

TEST(ObjectQueueTest, TenThreadsPostWhileItGoes) {
  const QtApplication application;
  for (int round = 0; round < (kvltest::kSanitized ? 5 : 20); ++round) {
    std::optional<ObjectElsewhere> elsewhere(std::in_place);
    const auto queue = elsewhere->queue();
    std::latch begun(10);
    std::vector<std::thread> threads;
    for (int i = 0; i < 10; ++i) {
      threads.emplace_back([&, queue] {
        queue->async([] {});
        begun.count_down();
        for (int k = 0; k < 200; ++k) queue->async([] {});
      });
    }
    begun.wait();
    elsewhere.reset();
    for (auto& thread : threads) thread.join();
  }
}

// A modal dialog in a handler must not hold up the answers that it waits for.
TEST(ObjectQueueTest, ABlockMayRunALoopInWhichTheOthersHaveTheirTurn) {
  const QtApplication application;
  QObject object;
  const auto queue = queueOf(object);
  std::vector<int> order;
  queue->async([&] {
    QEventLoop loop;
    queue->async([&] {
      order.push_back(3);
      loop.quit();
    });
    loop.exec();
    order.push_back(4);
  });
  queue->async([&] { order.push_back(1); });
  queue->async([&] { order.push_back(2); });
  EXPECT_TRUE(QTest::qWaitFor([&] { return order.size() == 4; }, kPatience));
  EXPECT_THAT(order, testing::ElementsAre(1, 2, 3, 4));
}

// As a view that paints itself again does.
TEST(ObjectQueueTest, ABlockThatBringsAboutTheNextLeavesTheLoopItsTurn) {
  const QtApplication application;
  QObject object;
  const auto queue = queueOf(object);
  constexpr int kMostTurns = 100'000;
  bool isOver = false;
  int turns = 0;
  std::function<void()> again = [&] {
    ++turns;
    if (!isOver && turns < kMostTurns) queue->async(again);
  };
  queue->async(again);
  QTimer::singleShot(0, &object, [&] { isOver = true; });
  EXPECT_TRUE(QTest::qWaitFor([&] { return isOver; }, kPatience));
  EXPECT_LT(turns, kMostTurns);
}

TEST(ObjectQueueTest, ADelayedBlockComesLaterOnTheObjectsThread) {
  const QtApplication application;
  QObject object;
  const auto queue = queueOf(object);
  std::vector<int> order;
  queue->asyncAfter(20ms, [&] {
    EXPECT_EQ(QThread::currentThread(), object.thread());
    order.push_back(2);
  });
  queue->asyncAfter(0ms, [&] { order.push_back(1); });
  EXPECT_TRUE(QTest::qWaitFor([&] { return order.size() == 2; }, kPatience));
  EXPECT_THAT(order, testing::ElementsAre(1, 2));
}

TEST(ObjectQueueTest, AfterTheApplicationNothingRuns) {
  QtApplication application;
  QObject object;
  const auto queue = queueOf(object);
  application.end();
  queue->async([] { ADD_FAILURE(); });
  // The next one would run what has been posted meanwhile.
  const QtApplication next;
  QCoreApplication::processEvents();
}

TEST(GuiThreadTest, WorkIsDoneOnTheGUIThreadWhileTheReceiverLives) {
  const QtApplication application;
  QObject stays;
  auto goes = std::make_unique<QObject>();
  QObject* told = nullptr;
  std::thread([&] {
    kvl::qt::onGuiThread(QPointer(goes.get()), [](QObject&) { ADD_FAILURE(); });
    kvl::qt::onGuiThread(QPointer(&stays), [&](QObject& self) {
      EXPECT_EQ(QThread::currentThread(), self.thread());
      told = &self;
    });
  }).join();
  EXPECT_EQ(told, nullptr);
  goes.reset();
  EXPECT_TRUE(QTest::qWaitFor([&] { return told == &stays; }, kPatience));
}

TEST(GuiThreadTest, WorkMayChangeWhatItBrings) {
  const QtApplication application;
  QObject receiver;
  QString told;
  kvl::qt::onGuiThread(QPointer(&receiver), [&told, text = QString("text")](QObject&) mutable {
    told = std::move(text);
  });
  EXPECT_TRUE(QTest::qWaitFor([&] { return told == "text"; }, kPatience));
}

}  // namespace
