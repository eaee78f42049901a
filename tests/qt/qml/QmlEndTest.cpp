// Sessions of QML that end or go while something is under way, and what they refuse.
#include "tests/qt/qml/QmlFixture.h"

#include <local/platform/Workspace.h>

#include <gmock/gmock.h>

#include <QPointer>
#include <QQmlContext>
#include <string_view>

namespace {

// What deletes an object in the middle of a script.
class Deleter : public QObject {
  Q_OBJECT

 public:
  Q_INVOKABLE void remove(QObject* object) { delete object; }
};

class QmlEndTest : public kvltest::QmlTest {
 protected:
  void SetUp() override {
    QmlTest::SetUp();
    engine->rootContext()->setContextProperty("deleter", &deleter_);
  }

  // An object with a session, and `other`, to wait with. Calls `begin` once it is established, in
  // no handler of its signals, in which nobody may delete it.
  [[nodiscard]] bool makeSession(const QByteArray& text) {
    return make(R"(
      property var other: Session {}
      property var session: Session { onEstablishedChanged: if (established) Qt.callLater(root.begin) }
      property int calls: 0
      function all(path, then) {
        session.fetch(path, then)
        session.submit(path, {}, then)
        session.send({action: path, method: "post"}, then)
      }
      function later(then) { other.fetch("/slow?ms=300", then) })" +
                text);
  }

 private:
  Deleter deleter_;
};

TEST_F(QmlEndTest, NothingIsSentInTheFormsPlace) {
  ASSERT_TRUE(makeSession(R"(
    property var model: ({})
    property string texts
    function tell(good, document, text) { texts += [++calls, good, document, text].join() + " " }
    function begin() {
      for (const form of [model.form, null, [1], "text"]) session.send(form, root.tell)
      const before = calls
      session.fetch("/status", () => { root.said = before + " " + texts })
    })"));
  const QString text = QStringLiteral(",false,,What was to be sent is no form. ");
  EXPECT_TRUE(says(QStringLiteral("0 1") + text + "2" + text + "3" + text + "4" + text));
  EXPECT_TRUE(waitForServiceLog("GET /status"));
  EXPECT_THAT(serviceLog(), testing::Not(testing::HasSubstr(" / ")));
}

TEST_F(QmlEndTest, NoFormWithoutAFunctionIsASignal) {
  ASSERT_TRUE(make(R"(
    property var session: Session { onFailed: text => root.said += text }
    Component.onCompleted: session.send(undefined))"));
  EXPECT_EQ(said(), QString());
  EXPECT_TRUE(kvltest::eventually([&] { return said().contains(QStringLiteral("no form")); }));
}

TEST_F(QmlEndTest, AFunctionIsCalledOnceTheBrowserHasOpenedTheAction) {
  bool opens = true;
  auto before = kvl::setURLOpener([&](std::string_view) { return opens; });
  ASSERT_TRUE(make(R"(
    property var session: Session {}
    function open() {
      session.send({action: "https://example.org/"},
                   (good, document, text) => { root.said += [good, document, text !== ""].join() })
    })"));
  ASSERT_TRUE(QMetaObject::invokeMethod(root.get(), "open"));
  EXPECT_EQ(said(), QString());
  EXPECT_TRUE(says(QStringLiteral("true,,false")));
  opens = false;
  root->setProperty("said", {});
  ASSERT_TRUE(QMetaObject::invokeMethod(root.get(), "open"));
  EXPECT_TRUE(says(QStringLiteral("false,,true")));
  kvl::setURLOpener(std::move(before));
}

TEST_F(QmlEndTest, AnActionForTheBrowserMayDestroyTheSession) {
  ASSERT_TRUE(
      make("property var session: Session {}\nfunction open() {"
           "session.send({action: 'https://example.org/'}, () => { said = 'called' }) }"));
  auto before = kvl::setURLOpener([&](std::string_view) {
    delete root->property("session").value<QObject*>();
    return true;
  });
  ASSERT_TRUE(QMetaObject::invokeMethod(root.get(), "open"));
  QCoreApplication::processEvents();
  EXPECT_EQ(said(), QString());
  kvl::setURLOpener(std::move(before));
}

TEST_F(QmlEndTest, ImagesComeFromASessionThatHasNotEnded) {
  ASSERT_TRUE(make(R"(
    property var second: null
    property var first: Session {
      onEstablishedChanged: if (established) {
        end()
        root.second = Qt.createQmlObject("import KVLocal; Session {}", root)
      }
    }
    property var image: Image {
      source: root.second !== null && root.second.established
        ? "image://kvlocal/image?format=png?8" : ""
      onStatusChanged: root.said = ["null", "ready", "", "failed"][status]
    })"));
  EXPECT_TRUE(says(QStringLiteral("ready")));
}

TEST_F(QmlEndTest, WhatIsUnderWayWhenItEndsIsTold) {
  ASSERT_TRUE(makeSession(R"(
    function begin() {
      all("/slow?ms=100000", (good, document, text) => {
        if (!good && text !== "") said += "failed "
      })
      session.end()
    })"));
  EXPECT_TRUE(says(QStringLiteral("failed failed failed ")));
}

TEST_F(QmlEndTest, WhatIsUnderWayWhenItGoesIsNot) {
  ASSERT_TRUE(makeSession(R"(
    function begin() {
      all("/slow?ms=50", () => { ++calls })
      later(() => { said = "calls: " + calls })
      deleter.remove(session)
    })"));
  EXPECT_TRUE(says(QStringLiteral("calls: 0")));
}

TEST_F(QmlEndTest, EveryFunctionMayEndTheSession) {
  ASSERT_TRUE(makeSession(R"(
    function begin() { all("/echo", () => { session.end(); if (++calls === 3) said = "over" }) })"));
  EXPECT_TRUE(says(QStringLiteral("over")));
}

TEST_F(QmlEndTest, EveryFunctionMayDestroyTheSession) {
  for (const char* fetch : {"fetch('/notes'", "submit('/echo', 1", "send({action: '/echo'}",
                            "send(undefined", "send({action: '/code?status=404'}"}) {
    SCOPED_TRACE(fetch);
    ASSERT_TRUE(makeSession(QByteArray("function begin() { session.") + fetch +
                            ", () => { deleter.remove(session); gc(); said = 'goes on' }) }"));
    const QPointer session(root->property("session").value<QObject*>());
    EXPECT_TRUE(says(QStringLiteral("goes on")));
    EXPECT_FALSE(session);
  }
}

}  // namespace

#include "QmlEndTest.moc"
