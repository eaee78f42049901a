// Signals of a session object that destroy it, and dialogs, images and models that outlive it or go
// before it.
#include "tests/qt/host/HostFixture.h"

#include <local/qt/EventListModel.h>
#include <local/qt/FormDialog.h>
#include <local/qt/ImageSource.h>
#include <local/qt/SessionObject.h>

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <memory>
#include <vector>

namespace {

using kvl::qt::EventListModel;
using kvl::qt::FormDialog;
using kvl::qt::ImageSource;
using kvl::qt::SessionObject;
using kvltest::eventually;

class SessionUsersTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  }
};

TEST_F(SessionUsersTest, DestroyedInsideItsEvents) {
  auto object = std::make_unique<SessionObject>(session().session());
  QObject::connect(object.get(), &SessionObject::eventsReceived, qApp, [&] { object.reset(); });
  const QSignalSpy received(&session(), &SessionObject::eventsReceived);
  session().setEventSource("/events?interval=10");
  EXPECT_TRUE(eventually([&] { return object == nullptr && received.size() > 2; }));
}

TEST_F(SessionUsersTest, DestroyedInsideItsProgress) {
  auto object = std::make_unique<SessionObject>();
  QObject::connect(object.get(), &SessionObject::progressChanged, qApp, [&] { object.reset(); });
  EXPECT_TRUE(eventually([&] { return object == nullptr; }));
}

TEST_F(SessionUsersTest, AModelThatGoesBeforeItsSourceIsToldNothing) {
  auto model = std::make_unique<EventListModel>();
  EventListModel other;
  for (auto* each : {model.get(), &other}) each->setSource(&session());
  const kvl::qt::Event event{"a", "b", "1"};
  Q_EMIT session().eventsReceived({event});
  EXPECT_EQ(model->count(), 1);
  model.reset();
  Q_EMIT session().eventsReceived({event});
  EXPECT_EQ(other.count(), 2);
}

TEST_F(SessionUsersTest, ADialogWhoseSessionEndsIsToldSo) {
  const kvl::Dictionary form{{"action", "/slow?ms=100000"}, {"method", "post"}};
  FormDialog dialog(session().session(), "Title", form, "/");
  const QSignalSpy submitted(&dialog, &FormDialog::submitted);
  dialog.submit();
  session().end();
  EXPECT_TRUE(submitted.isEmpty());
  ASSERT_TRUE(eventually([&] { return !submitted.isEmpty(); }));
  EXPECT_FALSE(submitted.front().at(2).toBool());
  EXPECT_NE(submitted.front().at(1).toString(), "");
  // And once more, as the button of the dialog that is still there does.
  dialog.submit();
  ASSERT_TRUE(eventually([&] { return submitted.size() == 2; }));
  EXPECT_FALSE(submitted.back().at(2).toBool());
}

TEST_F(SessionUsersTest, WhoeverWaitsForAnImageHearsOfTheEnd) {
  const auto images = session().images();
  std::vector<std::shared_ptr<kvl::Image>> told;
  for (int i = 0; i < 2; ++i)
    images->imageWithRelativePath(KVLEncoding::RelativePath("/slow?ms=100000"), {8, 8},
                                  [&](const auto& image) { told.push_back(image); });
  session().end();
  EXPECT_TRUE(told.empty());
  ASSERT_TRUE(eventually([&] { return told.size() == 2; }));
  EXPECT_TRUE(told.at(0) == nullptr && told.at(1) == nullptr);
}

TEST_F(SessionUsersTest, ImagesMayBeForgottenByWhoeverGetsOne) {
  ImageSource source(session().session());
  std::vector<std::shared_ptr<kvl::Image>> told;
  const auto ask = [&](const auto& handler) {
    source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8}, handler);
  };
  const auto keep = [&](const std::shared_ptr<kvl::Image>& image) { told.push_back(image); };
  ask([&](const std::shared_ptr<kvl::Image>& image) {
    keep(image);
    source.forget();
    ask(keep);
    EXPECT_EQ(told.size(), 1U) << "what was forgotten is asked for again";
  });
  ask(keep);
  ASSERT_TRUE(eventually([&] { return told.size() == 3; }));
  EXPECT_TRUE(told.at(0) != nullptr && told.at(0) == told.at(1));
  EXPECT_TRUE(told.at(2) != nullptr && told.at(2) != told.at(0));
}

}  // namespace
