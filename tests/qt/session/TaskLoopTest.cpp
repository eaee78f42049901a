// Coroutines in Qt's loop, with GLib's event dispatcher and with Qt's own.
#include "tests/qt/host/HostFixture.h"

#include <local/KVLEncodingAwait.h>
#include <local/platform/Task.h>
#include <local/qt/GuiThread.h>
#include <local/qt/SessionObject.h>

#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTimer>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvl::qt::SessionObject;
using Threads = std::vector<std::thread::id>;
namespace awaitable = KVLEncoding::awaitable;

// What the service answers, and the threads on which it went on.
kvl::Task<std::string> statusOf(KVLSession& session, Threads& threads,
                                std::shared_ptr<kvl::DispatchQueue> queue = nullptr) {
  const std::chrono::milliseconds limit(kvltest::kPatience);
  const auto error = co_await awaitable::established(session, limit);
  threads.push_back(std::this_thread::get_id());
  if (error) co_return error->description();
  const KVLEncoding::RelativePath path("/status");
  kvl::RequestOptions options;
  options.queue = std::move(queue);
  const auto answer = co_await awaitable::jsonFromSession(session, path, options);
  threads.push_back(std::this_thread::get_id());
  co_return kvl::outcomeText(answer.response, answer.error);
}

class TaskLoopTest : public kvltest::HostTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (!GetParam()) qputenv("QT_NO_GLIB", "1");
  }
  void TearDown() override {
    qunsetenv("QT_NO_GLIB");
    HostTest::TearDown();
  }

  // Starts it on another thread and runs the loop, which sleeps while there is nothing to do.
  void expectStatus(kvl::Task<std::string> task) {
    auto* dispatcher = QAbstractEventDispatcher::instance();
    EXPECT_EQ(dispatcher->inherits("QEventDispatcherGlib"), GetParam());
    QEventLoop loop;
    QTimer::singleShot(kvltest::kPatience, &loop, [&] { loop.exit(1); });
    std::string told;
    std::thread([&] {
      task.start([&](const std::string& text) {
        told = text;
        loop.quit();
      });
    }).join();
    EXPECT_EQ(loop.exec(), 0);
    EXPECT_EQ(told, "200 OK from /status");
    EXPECT_THAT(threads,
                testing::ElementsAre(std::this_thread::get_id(), std::this_thread::get_id()));
  }

  Threads threads;
};

TEST_P(TaskLoopTest, GoesOnInQtsLoopWithAnIntegration) {
  startHost({}, {});
  expectStatus(statusOf(*session().session(), threads));
}

TEST_P(TaskLoopTest, GoesOnWhereAnObjectLivesWithoutOne) {
  const kvltest::QtApplication itsApplication;
  auto object = std::make_unique<SessionObject>();
  const auto itsSession = object->session();
  expectStatus(statusOf(*itsSession, threads, object->queue()).on(object->queue()));
  kvl::Semaphore ended;
  itsSession->end([&](const auto&) { ended.signal(); });
  EXPECT_TRUE(ended.waitFor(std::chrono::milliseconds(kvltest::kPatience)));
}

INSTANTIATE_TEST_SUITE_P(Loops, TaskLoopTest, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "GLib" : "QtsOwn"; });

}  // namespace
