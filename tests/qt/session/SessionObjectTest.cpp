#include "tests/qt/host/HostFixture.h"

#include <local/KVLEncodingRoot.h>
#include <local/qt/EventListModel.h>
#include <local/qt/GuiThread.h>
#include <local/qt/SessionObject.h>

#include <gmock/gmock.h>

#include <QFile>
#include <QSignalSpy>
#include <QThread>
#include <atomic>
#include <semaphore>
#include <thread>

namespace {

using kvl::qt::EventListModel;
using kvl::qt::Fetched;
using kvl::qt::SessionObject;
using kvltest::eventually;

// Finds the parent of a queue that is used on the GUI thread, and tells on which thread it goes.
class QueueParentFilter : public QObject {
 public:
  explicit QueueParentFilter(const QObject& known) : known_(known) {}

  [[nodiscard]] QThread* goneOn() const { return goneOn_; }

 protected:
  bool eventFilter(QObject* receiver, QEvent* /*event*/) override {
    const QObject* parent = receiver->parent();
    if (!isFound_ && parent != &known_ && receiver->inherits("kvl::qt::ObjectQueueRunner")) {
      isFound_ = true;
      connect(
          parent, &QObject::destroyed, this, [this] { goneOn_ = QThread::currentThread(); },
          Qt::DirectConnection);
    }
    return false;
  }

 private:
  const QObject& known_;
  bool isFound_ = false;
  std::atomic<QThread*> goneOn_ = nullptr;
};

class SessionObjectTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
  }

  void establish() {
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  }

  // Another object for the same session.
  [[nodiscard]] std::unique_ptr<SessionObject> another() const {
    return std::make_unique<SessionObject>(session().session());
  }

  // Fetches something that takes longer than what has been asked for so far.
  void waitForLater() {
    bool isOver = false;
    session().json("/slow?ms=300", nullptr, [&](const Fetched&) { isOver = true; });
    ASSERT_TRUE(eventually([&] { return isOver; }));
  }
};

TEST_F(SessionObjectTest, HandlersArriveOnItsThread) {
  establish();
  int calls = 0;
  const auto handler = [&](const Fetched& fetched) {
    EXPECT_EQ(QThread::currentThread(), session().thread());
    EXPECT_TRUE(fetched.isGood()) << fetched.text().toStdString();
    EXPECT_TRUE(fetched.document);
    ++calls;
  };
  const kvl::Dictionary form{{"action", "/echo"}, {"method", "post"}};
  const kvl::Array inputs{kvl::Dictionary{{"name", "a"}, {"value", "b"}}};
  session().json("/status", nullptr, handler);
  session().submit(kvl::Dictionary{{"a", 1}}, "/echo", nullptr, handler);
  session().submitForm(form, inputs, "/", nullptr, handler);
  session().image("/image?format=png", {12, 12}, nullptr,
                  [&](const QImage& image, const Fetched& fetched) {
                    EXPECT_EQ(QThread::currentThread(), session().thread());
                    EXPECT_TRUE(fetched.isGood());
                    EXPECT_EQ(image.size(), QSize(12, 12));
                    ++calls;
                  });
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(eventually([&] { return calls == 4; }));
}

TEST_F(SessionObjectTest, ARefusalArrivesLikeAnyOtherOutcome) {
  int calls = 0;
  const auto refused = [&](const Fetched& fetched) {
    EXPECT_TRUE(fetched.error);
    ++calls;
  };
  session().end();
  session().json("/status", nullptr, refused);
  session().submit(kvl::Dictionary(), "/echo", nullptr, refused);
  session().image("/image", {}, nullptr, [&](const QImage& image, const Fetched& fetched) {
    EXPECT_TRUE(image.isNull());
    refused(fetched);
  });
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(eventually([&] { return calls == 3; }));
}

TEST_F(SessionObjectTest, AFailureWithoutAHandlerIsTold) {
  establish();
  const QSignalSpy failed(&session(), &SessionObject::failed);
  session().json("/code?status=404", nullptr, nullptr);
  session().json("/status", nullptr, nullptr);
  waitForLater();
  ASSERT_EQ(failed.size(), 1);
  EXPECT_EQ(failed.front().front(), "404 Not Found");
}

TEST_F(SessionObjectTest, AnExchangeIsCancelled) {
  establish();
  std::optional<Fetched> result;
  const auto exchange =
      session().json("/slow?ms=100000", nullptr, [&](const Fetched& fetched) { result = fetched; });
  exchange.cancel();
  EXPECT_FALSE(result);
  ASSERT_TRUE(eventually([&] { return result.has_value(); }));
  ASSERT_TRUE(result->error);
  EXPECT_EQ(result->error->code(), -999);
}

TEST_F(SessionObjectTest, ADestroyedContextIsNotCalled) {
  establish();
  auto context = std::make_unique<QObject>();
  session().json("/slow?ms=50", context.get(), [](const Fetched&) { ADD_FAILURE(); });
  session().image("/image?format=png", {}, context.get(),
                  [](const QImage&, const Fetched&) { ADD_FAILURE(); });
  context.reset();
  waitForLater();
}

TEST_F(SessionObjectTest, ADownloadArrivesAsAFile) {
  establish();
  const QString file = QString::fromStdString((directory.path() / "Grüße").string());
  int calls = 0;
  const QSignalSpy failed(&session(), &SessionObject::failed);
  session().download("/status", file, nullptr, [&](const KVLEncoding::DownloadResult& result) {
    EXPECT_EQ(QThread::currentThread(), session().thread());
    EXPECT_TRUE(result.file);
    ++calls;
  });
  session().download("/code?status=404", file + "2", nullptr, nullptr);
  EXPECT_TRUE(eventually([&] { return calls == 1 && !failed.isEmpty(); }));
  EXPECT_TRUE(QFile::exists(file));
  EXPECT_EQ(failed.front().front(), "404 Not Found");
}

TEST_F(SessionObjectTest, AnObjectOfAWorkerThread) {
  establish();
  QThread thread;
  auto helper = std::make_unique<QObject>();
  const auto queue = kvl::qt::queueOf(*helper);
  helper->moveToThread(&thread);
  thread.start();
  std::atomic<QThread*> where = nullptr;
  queue->async([&] {
    auto* object = new SessionObject(session().session());
    object->json("/status", nullptr, [&, object](const Fetched&) {
      delete object;
      where = QThread::currentThread();
    });
  });
  EXPECT_TRUE(eventually([&] { return where != nullptr; }));
  EXPECT_EQ(where, &thread);
  thread.quit();
  thread.wait();
}

// Screens belong to the GUI thread.
TEST_F(SessionObjectTest, AnImageForAWorkerThreadAsksTheGUIThreadForItsScale) {
  establish();
  QThread thread;
  auto helper = std::make_unique<QObject>();
  const auto queue = kvl::qt::queueOf(*helper);
  helper->moveToThread(&thread);
  thread.start();
  std::atomic<bool> isDrawn = false;
  std::binary_semaphore later(0);
  QueueParentFilter screens(session());
  qApp->installEventFilter(&screens);
  queue->async([&] {
    auto* object = new SessionObject(session().session(), helper.get());
    object->image("/image?format=png", {12, 12}, nullptr, [&](const QImage& image, const Fetched&) {
      EXPECT_EQ(QThread::currentThread(), &thread);
      EXPECT_EQ(image.size(), QSize(12, 12));
      isDrawn = true;
    });
    object->json("/slow?ms=300", nullptr, [&](const Fetched&) { later.release(); });
  });
  later.acquire();
  EXPECT_FALSE(isDrawn);
  EXPECT_TRUE(eventually([&] { return isDrawn.load(); }));
  queue->async([&] { helper.reset(); });
  EXPECT_TRUE(eventually([&] { return screens.goneOn() != nullptr; }));
  EXPECT_EQ(screens.goneOn(), qApp->thread());
  thread.quit();
  thread.wait();
}

TEST_F(SessionObjectTest, DestroyedWhileFetching) {
  establish();
  auto object = another();
  object->json("/slow?ms=50", nullptr, [](const Fetched&) { ADD_FAILURE(); });
  object->image("/image?format=png", {}, nullptr,
                [](const QImage&, const Fetched&) { ADD_FAILURE(); });
  object.reset();
  waitForLater();
}

TEST_F(SessionObjectTest, DestroyedInsideItsOwnSignals) {
  establish();
  auto failing = another();
  QObject::connect(failing.get(), &SessionObject::failed, qApp, [&] { failing.reset(); });
  failing->json("/code?status=404", nullptr, nullptr);
  auto changing = another();
  // With the text of an error, which `failed` would tell next.
  QObject::connect(changing.get(), &SessionObject::stateChanged, qApp, [&] {
    if (!changing->errorText().isEmpty()) changing.reset();
  });
  EXPECT_TRUE(eventually([&] { return failing == nullptr; }));
  session().setEventSource("/events?interval=20");
  killService();
  EXPECT_TRUE(eventually([&] { return changing == nullptr; }));
}

TEST_F(SessionObjectTest, EndsItsOwnSession) {
  auto object = std::make_unique<SessionObject>();
  const auto own = object->session();
  object.reset();
  EXPECT_TRUE(own->isEnded());
}

TEST_F(SessionObjectTest, LeavesAGivenSession) {
  another().reset();
  EXPECT_FALSE(session().session()->isEnded());
}

TEST_F(SessionObjectTest, AfterTheApplicationNothingIsTold) {
  establish();
  ASSERT_TRUE(eventually([&] { return session().progressText() == "Established"; }));
  QCoreApplication::processEvents();  // so that no event for the queue is on its way
  QObject::connect(&session(), &SessionObject::stateChanged, [] { ADD_FAILURE(); });
  session().json("/slow?ms=100000", nullptr, [](const Fetched&) { ADD_FAILURE(); });
  application().end();
  std::counting_semaphore<> told(0);
  const auto observed = session().session()->observeState([&](KVLSessionState state) {
    if (state != KVLSessionStateEstablished) told.release();
  });
  session().session()->disconnectAfterError();
  told.acquire();
  // The next one would deliver what has been posted meanwhile.
  const kvltest::QtApplication next;
  QCoreApplication::processEvents();
}

TEST_F(SessionObjectTest, EventsThatHaveComeMeanwhileAreOneSignal) {
  establish();
  const QSignalSpy received(&session(), &SessionObject::eventsReceived);
  std::atomic<std::size_t> count = 0;
  const auto observed = session().session()->observeEvents([&](const auto& events) {
    count += events.size();
    count.notify_all();
  });
  // The event loop does not run. Each event is read before the next one is brought about.
  session().setEventSource("/feed");
  for (auto seen = count.load(); seen < 1; seen = count) count.wait(seen);
  for (std::size_t next = 2; next <= 4; ++next) {
    KVLEncoding::submit(kvl::Dictionary(), KVLEncoding::RelativePath("/echo"), *session().session(),
                        nullptr);
    for (auto seen = count.load(); seen < next; seen = count) count.wait(seen);
  }
  ASSERT_TRUE(eventually([&] { return !received.isEmpty(); }));
  EXPECT_EQ(received.size(), 1);
  EXPECT_EQ(received.front().front().value<QList<kvl::qt::Event>>().size(), 4);
}

TEST_F(SessionObjectTest, AModelHasTheEventsOfItsSource) {
  EventListModel model;
  auto object = another();
  model.setSource(object.get());
  const QSignalSpy changed(&model, &EventListModel::sourceChanged);
  model.setSource(object.get());
  EXPECT_TRUE(changed.isEmpty());
  object->setEventSource("/events?last=3&then=silence");
  EXPECT_TRUE(eventually([&] { return model.count() == 3; }));
  object.reset();
  EXPECT_EQ(model.source(), nullptr);
  EXPECT_EQ(changed.size(), 1);
  EXPECT_EQ(model.count(), 3);
}

TEST_F(SessionObjectTest, PropertiesTellHowTheSessionIsDoing) {
  const QSignalSpy failed(&session(), &SessionObject::failed);
  establish();
  EXPECT_EQ(session().stateText(), "Established");
  EXPECT_EQ(session().errorText(), "");
  EXPECT_TRUE(eventually([&] { return session().progressText() == "Established"; }));
  EXPECT_EQ(session().progress(), 1);
  EXPECT_TRUE(session().progressDetail().contains("https://"));
  EXPECT_EQ(session().eventSource(), "");
  session().setEventSource("/events?interval=20");
  killService();
  ASSERT_TRUE(eventually([&] { return !session().isEstablished(); }));
  EXPECT_NE(session().errorText(), "");
  EXPECT_EQ(failed.back().front(), session().errorText());
  session().end();
  EXPECT_TRUE(eventually([&] { return session().state() == SessionObject::Ended; }));
  EXPECT_EQ(session().stateText(), "Ended");
}

}  // namespace
