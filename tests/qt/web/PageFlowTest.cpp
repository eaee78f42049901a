// An answer between the session's queue and the engine's thread.
#include "qt/web/PageFlow.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <array>
#include <string>
#include <thread>

namespace {

using kvl::Data;
using kvl::Error;
using kvl::qt::PageBody;
using kvl::qt::PageFlow;

// Counts what the flow asks of a task.
class CountedTask final : public kvl::DataTask {
 public:
  [[nodiscard]] std::uint64_t taskIdentifier() const noexcept override { return 1; }
  [[nodiscard]] State state() const noexcept override { return State::running; }
  [[nodiscard]] const kvl::URLRequest& originalRequest() const noexcept override {
    return request_;
  }
  [[nodiscard]] kvl::URLResponseRef response() const override { return nullptr; }
  void resume() override {}
  void cancel() override { ++cancels; }
  void setPrefersIncrementalDelivery(bool) override {}
  [[nodiscard]] bool prefersIncrementalDelivery() const noexcept override { return true; }
  void suspendDelivery() override { ++suspends; }
  void resumeDelivery() override { ++resumes; }

  std::atomic<int> cancels = 0;
  std::atomic<int> suspends = 0;
  std::atomic<int> resumes = 0;

 private:
  const kvl::URLRequest request_{"/"};
};

// Takes the flow's events as an object of the GUI thread does.
class Listener final : public QObject {
 public:
  std::shared_ptr<PageFlow> flow;
  int told = 0;

 protected:
  bool event(QEvent* event) override {
    if (!flow || !flow->take(*event)) return QObject::event(event);
    ++told;
    return true;
  }
};

Data bytes(std::size_t count) {
  return Data::adoptingText(std::string(count, 'x'));
}

class PageFlowTest : public ::testing::Test {
 protected:
  PageFlowTest() {
    listener.flow = flow;
    flow->setTask(task);
  }
  ~PageFlowTest() override { flow->letGo(); }

  std::string read(std::size_t most) {
    std::string text(most, '\0');
    const auto count = flow->read(text.data(), static_cast<qint64>(most));
    if (count < 0) return "end";
    text.resize(static_cast<std::size_t>(count));
    return text;
  }

  Listener listener;
  const std::shared_ptr<PageFlow> flow = std::make_shared<PageFlow>(listener);
  const std::shared_ptr<CountedTask> task = std::make_shared<CountedTask>();
  kvl::BodyReceiver receiver = flow->receiver();
};

TEST_F(PageFlowTest, PiecesAreReadInOrderAcrossTheirEnds) {
  receiver.piece(Data::fromText("abc"));
  receiver.piece(Data::fromText("defg"));
  EXPECT_EQ(flow->available(), 7);
  EXPECT_EQ(read(2), "ab");
  EXPECT_EQ(read(3), "cde");
  EXPECT_EQ(read(9), "fg");
  EXPECT_EQ(read(9), "");
  EXPECT_FALSE(flow->isAtEnd());
  receiver.end(nullptr, std::nullopt);
  EXPECT_TRUE(flow->isAtEnd());
  EXPECT_EQ(read(9), "end");
}

TEST_F(PageFlowTest, WhatCameBeforeTheEndIsReadFirst) {
  receiver.piece(Data::fromText("abc"));
  receiver.end(nullptr, std::nullopt);
  EXPECT_FALSE(flow->isAtEnd());
  PageBody body(flow);
  EXPECT_TRUE(body.isSequential());
  EXPECT_EQ(body.readAll(), "abc");
  EXPECT_TRUE(body.atEnd());
}

TEST_F(PageFlowTest, AnErrorIsNoEnd) {
  receiver.end(nullptr, Error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut));
  EXPECT_FALSE(flow->isAtEnd());
  EXPECT_EQ(read(9), "end");
  EXPECT_EQ(flow->news().error->code(), kvl::NSURLErrorTimedOut);
}

TEST_F(PageFlowTest, HoldsAboveItsLimitAndGoesOnBelowAQuarter) {
  receiver.piece(bytes(PageFlow::kMostWaiting));
  EXPECT_EQ(task->suspends, 0);
  receiver.piece(bytes(1));
  EXPECT_EQ(task->suspends, 1);
  receiver.piece(bytes(100));
  EXPECT_EQ(task->suspends, 1);
  static_cast<void>(read(PageFlow::kMostWaiting + 101 - PageFlow::kFewWaiting));
  EXPECT_EQ(task->resumes, 0);
  static_cast<void>(read(1));
  EXPECT_EQ(task->resumes, 1);
  static_cast<void>(read(PageFlow::kMostWaiting));
  EXPECT_EQ(task->resumes, 1);
}

TEST_F(PageFlowTest, ATaskThatIsKnownLateIsHeld) {
  const auto other = std::make_shared<PageFlow>(listener);
  other->receiver().piece(bytes(PageFlow::kMostWaiting + 1));
  other->setTask(task);
  EXPECT_EQ(task->suspends, 1);
  other->letGo();
}

TEST_F(PageFlowTest, LettingGoCancelsAndIsAnErrorForTheReader) {
  receiver.piece(bytes(5));
  flow->letGo();
  EXPECT_EQ(task->cancels, 1);
  receiver.piece(bytes(5));
  EXPECT_EQ(flow->available(), 5);
  EXPECT_EQ(read(9).size(), 5U);
  EXPECT_EQ(read(9), "end");
  receiver.end(nullptr, std::nullopt);
  EXPECT_FALSE(flow->isAtEnd());
  QCoreApplication::sendPostedEvents(&listener);
  EXPECT_EQ(listener.told, 1);  // of what came before
}

TEST_F(PageFlowTest, ATaskThatIsKnownAfterLettingGoIsCancelled) {
  const auto other = std::make_shared<PageFlow>(listener);
  other->letGo();
  other->setTask(task);
  EXPECT_EQ(task->cancels, 1);
  other->setTask(nullptr);
}

TEST_F(PageFlowTest, ManyNewsAreOneEvent) {
  for (int i = 0; i < 10; ++i) receiver.piece(bytes(1));
  receiver.end(nullptr, std::nullopt);
  QCoreApplication::sendPostedEvents(&listener);
  EXPECT_EQ(listener.told, 1);
  flow->setReady(std::nullopt);
  QCoreApplication::sendPostedEvents(&listener);
  EXPECT_EQ(listener.told, 2);
}

TEST_F(PageFlowTest, AThreadWritesWhileAnotherReads) {
  constexpr std::size_t kPieces = 2'000;
  constexpr std::size_t kPiece = 3'000;
  std::thread writer([this] {
    for (std::size_t i = 0; i < kPieces; ++i) receiver.piece(bytes(kPiece));
  });
  std::size_t count = 0;
  std::array<char, 7'000> room{};
  while (count < kPieces * kPiece)
    if (const auto part = flow->read(room.data(), room.size()); part > 0)
      count += static_cast<std::size_t>(part);
  writer.join();
  EXPECT_EQ(flow->available(), 0);
  EXPECT_EQ(task->suspends, task->resumes);
}

}  // namespace
