// The module as a page of QML uses it, beside the development notary and service.
#include "tests/tools/ServiceFixture.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>

#include <unistd.h>

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QTest>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

constexpr int kPatience = 60'000;  // ms

class QmlModuleTest : public kvltest::ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    busVariable_.emplace(busAddress());
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    // The kernel's keyring is shared with whoever else runs these tests at the same time.
    kvl::setHostIdentifier("org.example.QmlModuleTest-" + std::to_string(getpid()));
    application_ = std::make_unique<QGuiApplication>(count_, arguments_);
    engine_ = std::make_unique<QQmlEngine>();
    engine_->addImportPath(QStringLiteral(KVL_QML_MODULES));
  }
  void TearDown() override {
    root.reset();
    engine_.reset();
    application_.reset();
    (void)KVLNotary::deleteKeys();
  }

  // An object with `said`, a text that `text` fills.
  [[nodiscard]] bool make(const QByteArray& text) {
    QQmlComponent component(engine_.get());
    component.setData(
        "import QtQml\nimport KVLocal\nQtObject {\nid: root\nproperty string said\n" + text + "}",
        {});
    root.reset(component.create());
    EXPECT_NE(root, nullptr) << component.errorString().toStdString();
    return root != nullptr;
  }
  [[nodiscard]] bool says(const QString& text) {
    const bool found = QTest::qWaitFor([&] { return said() == text; }, kPatience);
    EXPECT_TRUE(found) << said().toStdString();
    return found;
  }
  [[nodiscard]] QString said() const { return root->property("said").toString(); }

  std::unique_ptr<QObject> root;

 private:
  int count_ = 1;
  std::string name_ = "kvltest";
  char* arguments_[2] = {name_.data(), nullptr};
  std::optional<kvltest::SessionBusVariable> busVariable_;
  std::unique_ptr<QGuiApplication> application_;
  std::unique_ptr<QQmlEngine> engine_;
};

TEST_F(QmlModuleTest, SubmitsAndFetchesDocuments) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) submit("/notes", {text: "Grüße"}, added)
    }
    function added(good, note, text) {
      session.fetch("/notes", (good2, list, text2) => {
        root.said = [good, note.text, good2, list.notes.length, list.notes[0].text].join()
      })
    })"));
  EXPECT_TRUE(says(QStringLiteral("true,Grüße,true,1,Grüße")));
}

TEST_F(QmlModuleTest, TellsWhyAFetchFailed) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established)
        fetch("/missing", (good, document, text) => { root.said = good + " " + text })
    })"));
  EXPECT_TRUE(says(QStringLiteral("false 404 Not Found")));
}

TEST_F(QmlModuleTest, EventsFillTheModel) {
  ASSERT_TRUE(make(R"(
    property var session: Session { eventSource: "/feed" }
    property var events: EventModel {
      session: root.session
      onCountChanged: if (count > 0) root.said = "some"
    })"));
  EXPECT_TRUE(says(QStringLiteral("some")));
}

TEST_F(QmlModuleTest, ADocumentIsAModel) {
  ASSERT_TRUE(make(R"(
    property var model: DocumentModel { document: ({a: [1, 2], b: "x"}) }
    Component.onCompleted: root.said = model.data(model.index(1, 1)))"));
  EXPECT_TRUE(says(QStringLiteral("x")));
}

TEST_F(QmlModuleTest, AFunctionIsNotCalledOnceTheSessionHasGone) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) {
        fetch("/notes", () => { root.said = "called" })
        destroy()
        Qt.callLater(() => { root.said = "gone" })
      }
    })"));
  EXPECT_TRUE(says(QStringLiteral("gone")));
  QTest::qWait(0);
  EXPECT_EQ(said(), QStringLiteral("gone"));
}

}  // namespace
