// Images of the service in items of QML.
#include "tests/qt/qml/QmlFixture.h"

#include <QQuickAsyncImageProvider>
#include <QQuickItem>

namespace {

class QmlImageTest : public kvltest::QmlTest {
 protected:
  // Makes a session, and when it is established an image that says its state and its size.
  [[nodiscard]] bool makeImage(const QByteArray& properties) {
    return make(R"(
      property var session: Session { }
      property var image: Image {
        onStatusChanged: if (status == Image.Ready || status == Image.Error)
          root.said = (status == Image.Ready) + " " + implicitWidth + "x" + implicitHeight
        )" + properties +
                R"(
      })");
  }
};

TEST_F(QmlImageTest, TheAddressHasTheSize) {
  ASSERT_TRUE(
      makeImage("source: session.established ? 'image://kvlocal/image?format=png?24' : ''"));
  EXPECT_TRUE(says(QStringLiteral("true 24x24")));
}

TEST_F(QmlImageTest, TheItemHasTheSizeOtherwise) {
  ASSERT_TRUE(makeImage(R"(sourceSize: Qt.size(40, 20)
    source: session.established ? 'image://kvlocal/image?format=png' : '')"));
  EXPECT_TRUE(says(QStringLiteral("true 20x20")));
  root->property("image").value<QObject*>()->setProperty("sourceSize", QSize(30, 0));
  EXPECT_TRUE(says(QStringLiteral("true 30x30")));
}

TEST_F(QmlImageTest, WithoutASizeItHasItsOwn) {
  ASSERT_TRUE(makeImage("source: session.established ? 'image://kvlocal/image?format=png' : ''"));
  EXPECT_TRUE(says(QStringLiteral("true 16x16")));
}

TEST_F(QmlImageTest, WhatIsNotThereFails) {
  ASSERT_TRUE(makeImage("source: session.established ? 'image://kvlocal/code?status=404' : ''"));
  EXPECT_TRUE(says(QStringLiteral("false 0x0")));
}

TEST_F(QmlImageTest, WithoutASessionItFails) {
  ASSERT_TRUE(make(R"(
    property var image: Image {
      source: "image://kvlocal/image?24"
      onStatusChanged: if (status == Image.Error) root.said = "failed"
      Component.onCompleted: if (status == Image.Error) root.said = "failed"
    })"));
  EXPECT_TRUE(says(QStringLiteral("failed")));
}

TEST_F(QmlImageTest, AnotherSessionIsAskedOnceTheOldestHasGone) {
  ASSERT_TRUE(make(R"(
    property var second: null
    property var first: Session {
      onEstablishedChanged: if (established) {
        root.second = Qt.createQmlObject("import KVLocal; Session {}", root)
        destroy()
      }
    }
    property var image: Image {
      source: root.first === null && root.second.established
        ? "image://kvlocal/image?format=png?8" : ""
      onStatusChanged: root.said = ["null", "ready", "loading", "failed"][status]
    })"));
  EXPECT_TRUE(says(QStringLiteral("ready")));
}

constexpr auto kSlow = R"(
    property var session: Session {
      onEstablishedChanged: if (established) root.image.source = "image://kvlocal/slow?ms=100000?8"
    }
    property var image: Image {
      onStatusChanged: root.said = ["null", "ready", "waits", "failed"][status]
    })";

TEST_F(QmlImageTest, TheSessionGoesWhileItWaits) {
  ASSERT_TRUE(make(kSlow));
  ASSERT_TRUE(says(QStringLiteral("waits")));
  ASSERT_TRUE(QMetaObject::invokeMethod(root->property("session").value<QObject*>(), "end"));
  EXPECT_TRUE(says(QStringLiteral("failed")));
}

TEST_F(QmlImageTest, TheSessionIsDestroyedWhileItWaits) {
  ASSERT_TRUE(make(kSlow));
  ASSERT_TRUE(says(QStringLiteral("waits")));
  delete root->property("session").value<QObject*>();
  EXPECT_TRUE(says(QStringLiteral("failed")));
}

TEST_F(QmlImageTest, TheItemGoesWhileItWaits) {
  ASSERT_TRUE(make(kSlow));
  ASSERT_TRUE(says(QStringLiteral("waits")));
  delete root->property("image").value<QObject*>();
  root->setProperty("said", {});
  delete root->property("session").value<QObject*>();
  EXPECT_TRUE(make("Component.onCompleted: said = 'goes on'"));
  EXPECT_TRUE(says(QStringLiteral("goes on")));
}

// Engines of today cancel what they drop, but nothing promises that.
TEST_F(QmlImageTest, TheAnswerGoesWhileItWaits) {
  ASSERT_TRUE(make("property var session: Session { }"));
  auto* provider = dynamic_cast<QQuickAsyncImageProvider*>(engine->imageProvider("kvlocal"));
  ASSERT_NE(provider, nullptr);
  delete provider->requestImageResponse("image?format=png?8", {});
  root.reset();
}

TEST_F(QmlImageTest, TheEngineGoesWhileItWaits) {
  ASSERT_TRUE(make(kSlow));
  ASSERT_TRUE(says(QStringLiteral("waits")));
  engine.reset();
  root.reset();
}

}  // namespace
