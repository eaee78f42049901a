#include "tests/qt/host/HostFixture.h"

#include <local/platform/Trace.h>
#include <local/qt/FormDialog.h>

#include <gmock/gmock.h>

#include <QPushButton>
#include <QSignalSpy>
#include <atomic>

namespace {

using kvl::qt::FormDialog;
using kvltest::eventually;

class FormDialogTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  }

  [[nodiscard]] std::unique_ptr<FormDialog> dialogFor(const char* action) const {
    const kvl::Dictionary form{{"action", action}, {"method", "post"}};
    return std::make_unique<FormDialog>(session().session(), "Title", form, "/");
  }
};

TEST_F(FormDialogTest, TheAnswerIsKeptAndTold) {
  auto dialog = dialogFor("/echo");
  QSignalSpy submitted(dialog.get(), &FormDialog::submitted);
  EXPECT_FALSE(dialog->answer());
  dialog->submit();
  EXPECT_FALSE(dialog->isAnswered());
  ASSERT_TRUE(eventually([&] { return dialog->isAnswered(); }));
  ASSERT_TRUE(dialog->answer() && dialog->answer()->dictionary());
  EXPECT_EQ((*dialog->answer()->dictionary())["method"].string(), "POST");
  ASSERT_EQ(submitted.size(), 1);
  EXPECT_EQ(submitted.front(), QVariantList({"Title", "200 OK", true}));
}

TEST_F(FormDialogTest, ARefusalIsTold) {
  auto dialog = dialogFor("/code?status=503");
  QSignalSpy submitted(dialog.get(), &FormDialog::submitted);
  dialog->submit();
  ASSERT_TRUE(eventually([&] { return !submitted.isEmpty(); }));
  EXPECT_EQ(submitted.front(), QVariantList({"Title", "503 Service Unavailable", false}));
}

TEST_F(FormDialogTest, AFileIsNamedByTheHost) {
  auto dialog = dialogFor("/echo");
  dialog->addFile(QString::fromStdString(file("five.txt", "five!")));
  dialog->submit();
  ASSERT_TRUE(eventually([&] { return dialog->isAnswered(); }));
  EXPECT_THAT(dialog->answer()->description(), testing::HasSubstr("five.txt"));
}

TEST_F(FormDialogTest, FilesMayBeLeftOut) {
  auto dialog = dialogFor("/echo");
  dialog->show();
  const auto isOffered = [&] {
    for (const auto* button : dialog->findChildren<QPushButton*>())
      if (button->text() == "&Add a file…") return button->isVisible();
    return false;
  };
  EXPECT_TRUE(isOffered());
  dialog->setAllowsFiles(false);
  EXPECT_FALSE(isOffered());
}

TEST_F(FormDialogTest, ClosingCancelsWhatIsUnderWay) {
  auto dialog = dialogFor("/slow?ms=100000");
  dialog->show();
  QSignalSpy submitted(dialog.get(), &FormDialog::submitted);
  dialog->submit();
  dialog->close();
  ASSERT_TRUE(eventually([&] { return !submitted.isEmpty(); }));
  EXPECT_FALSE(submitted.front().at(2).toBool());
}

TEST_F(FormDialogTest, WhatIsUnderWayIsNotSubmittedAgain) {
  auto dialog = dialogFor("/slow?ms=50");
  QSignalSpy submitted(dialog.get(), &FormDialog::submitted);
  dialog->submit();
  dialog->submit();
  bool isLater = false;
  session().json("/slow?ms=300", nullptr, [&](const kvl::qt::Fetched&) { isLater = true; });
  ASSERT_TRUE(eventually([&] { return isLater && !submitted.isEmpty(); }));
  EXPECT_EQ(submitted.size(), 1);
  dialog->submit();
  EXPECT_TRUE(eventually([&] { return submitted.size() == 2; }));
}

TEST_F(FormDialogTest, DestroyingItCancelsWhatIsUnderWay) {
  std::atomic<int> cancelled = 0;
  const auto trace = kvl::observeTrace([&](const kvl::TraceRecord& record) {
    if (record.path != "/slow") return;
    const bool isEnd = record.kind == kvl::TraceRecord::Kind::requestEnded;
    if (isEnd && record.error != nullptr && record.error->code() == -999) ++cancelled;
  });
  auto dialog = dialogFor("/slow?ms=100000");
  QObject::connect(dialog.get(), &FormDialog::submitted, [] { ADD_FAILURE(); });
  dialog->submit();
  dialog.reset();
  EXPECT_TRUE(eventually([&] { return cancelled == 1; }));
}

TEST_F(FormDialogTest, DestroyedByWhoeverHearsOfTheAnswer) {
  auto dialog = dialogFor("/echo");
  QObject::connect(dialog.get(), &FormDialog::submitted, qApp, [&] { dialog.reset(); });
  dialog->submit();
  EXPECT_TRUE(eventually([&] { return dialog == nullptr; }));
}

}  // namespace
