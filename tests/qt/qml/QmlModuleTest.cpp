// The module as a file of QML uses it.
#include "tests/qt/qml/QmlFixture.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QJSValue>
#include <QPointer>
#include <QSignalSpy>
#include <QString>
#include <QTranslator>

namespace {

using QmlModuleTest = kvltest::QmlTest;

TEST_F(QmlModuleTest, SubmitsAndFetchesDocuments) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) submit("/notes", {text: "Grüße"}, root.added)
    }
    function added(good, note, text) {
      session.fetch("/notes", (good2, list, text2) => {
        said = [good, note.text, text, good2, list.notes.length, list.notes[0].text].join()
      })
    })"));
  EXPECT_TRUE(says(QStringLiteral("true,Grüße,201 Created,true,1,Grüße")));
}

TEST_F(QmlModuleTest, SendsTheFormsThatTheServiceDescribes) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) fetch("/notes", root.add)
    }
    function add(good, list) {
      list.form.inputs[0].value = "milk"
      session.send(list.form, () => session.fetch("/notes", root.remove))
    }
    function remove(good, list) {
      said = list.notes[0].text
      session.send(list.notes[0].form, (good2, answer, text) => {
        session.fetch("/notes", (good3, left) => { said += " " + text + " " + left.notes.length })
      })
    })"));
  EXPECT_TRUE(says(QStringLiteral("milk 200 OK 0")));
  EXPECT_THAT(serviceLog(), testing::HasSubstr("DELETE /notes/"));
}

TEST_F(QmlModuleTest, TellsWhyAFetchFailed) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established)
        fetch("/missing", (good, document, text) => { root.said = good + " " + text })
    })"));
  EXPECT_TRUE(says(QStringLiteral("false 404 Not Found")));
}

TEST_F(QmlModuleTest, AFailureWithoutAFunctionIsASignal) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) fetch("/missing")
      onFailed: text => root.said = text
    })"));
  EXPECT_TRUE(says(QStringLiteral("404 Not Found")));
}

TEST_F(QmlModuleTest, WhatIsNoFormIsRefused) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) send("no form", good => { root.said = "good: " + good })
    })"));
  EXPECT_TRUE(says(QStringLiteral("good: false")));
}

TEST_F(QmlModuleTest, AFaultInAFunctionIsLoggedWithItsLine) {
  static QString logged;
  const auto before = qInstallMessageHandler(
      [](QtMsgType, const QMessageLogContext&, const QString& text) { logged += text; });
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) {
        fetch("/notes", () => nothing.at)
        fetch("/notes", () => { root.said = "second" })
      }
    })"));
  EXPECT_TRUE(says(QStringLiteral("second")));
  qInstallMessageHandler(before);
  EXPECT_EQ(logged, QStringLiteral(":9: ReferenceError: nothing is not defined"));
}

TEST_F(QmlModuleTest, EventsFillTheModel) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      eventSource: "/feed"
      onEstablishedChanged: if (established) submit("/notes", {text: "bread"})
    }
    property var events: EventModel {
      source: root.session
      onCountChanged: if (data(index(count - 1, 1)) == "notes") root.said = data(index(count - 1, 2))
    })"));
  EXPECT_TRUE(kvltest::eventually([&] { return said().contains(QStringLiteral("bread")); }));
}

TEST_F(QmlModuleTest, ADocumentIsAModel) {
  ASSERT_TRUE(make(R"(
    property var model: DocumentModel { document: ({a: [1, 2], b: "x"}) }
    function text(row) { return model.data(model.index(row, 1)) }
    Component.onCompleted: {
      const first = [model.rowCount(), text(1), model.document.a[1]]
      model.document = undefined
      said = first.concat(model.rowCount()).join()
    })"));
  EXPECT_EQ(said(), QStringLiteral("2,x,2,0"));
}

TEST_F(QmlModuleTest, AFunctionIsNotCalledOnceTheSessionHasGone) {
  ASSERT_TRUE(make(R"(
    property var other: Session {}
    property var session: Session {
      onEstablishedChanged: if (established) {
        fetch("/notes", () => { root.said = "called" })
        root.other.fetch("/slow?ms=300", () => { root.said += "gone" })
        destroy()
      }
    })"));
  EXPECT_TRUE(says(QStringLiteral("gone")));
}

TEST_F(QmlModuleTest, AFunctionMayDestroyTheSession) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established)
        fetch("/notes", () => { root.objectName = "goes"; root.said = "gone" })
    })"));
  const QPointer session(root->property("session").value<QObject*>());
  ASSERT_TRUE(session);
  QObject::connect(root.get(), &QObject::objectNameChanged, [&] { delete session.data(); });
  EXPECT_TRUE(says(QStringLiteral("gone")));
  EXPECT_FALSE(session);
}

TEST_F(QmlModuleTest, TheEngineMayGoWhileAFunctionWaits) {
  ASSERT_TRUE(make(R"(
    property var session: Session {
      onEstablishedChanged: if (established) {
        fetch("/slow?ms=100", () => { root.said = "called" })
        root.said = "waits"
      }
    })"));
  ASSERT_TRUE(says(QStringLiteral("waits")));
  auto* session = root->property("session").value<QObject*>();
  const QSignalSpy failed(session, SIGNAL(failed(QString)));
  engine.reset();
  EXPECT_TRUE(waitForServiceLog("GET /slow"));
  // What is answered later is handled later.
  ASSERT_TRUE(QMetaObject::invokeMethod(session, "fetch", Q_ARG(QString, "/missing"),
                                        Q_ARG(QJSValue, QJSValue())));
  EXPECT_TRUE(kvltest::eventually([&] { return !failed.isEmpty(); }));
}

// The first to load the library here is the engine, on its own thread.
TEST_F(QmlModuleTest, TheBindingsTranslatorBelongsToTheApplication) {
  ASSERT_TRUE(make(""));
  EXPECT_TRUE(kvltest::eventually([] { return qApp->findChild<QTranslator*>() != nullptr; }));
  EXPECT_EQ(qApp->findChildren<QTranslator*>().size(), 1);
}

}  // namespace
