#include "tests/qt/qml/QmlFixture.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>

#include <unistd.h>

#include <QFont>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlComponent>
#include <QUrl>
#include <cstdlib>
#include <string>

namespace kvltest {
namespace {

constexpr int kPoints = 10;

// What Qt Quick makes once in a process does not outlast an application, so there is one.
void startApplicationOnce() {
  static int count = 1;
  static char name[] = "kvltest";
  static char* arguments[] = {name, nullptr};
  static const QGuiApplication* application = nullptr;
  if (application != nullptr) return;
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_QUICK_BACKEND", "software", 1);
  setenv("QT_QUICK_CONTROLS_STYLE", "Fusion", 1);
  setenv("LC_ALL", "en_US.UTF-8", 1);
  application = new QGuiApplication(count, arguments);
  QGuiApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), kPoints));
}

}  // namespace

void QmlTest::SetUp() {
  ServiceTest::SetUp();
  busVariable_.emplace(busAddress());
  // The kernel's keyring is shared with whoever else runs these tests at the same time.
  kvl::setHostIdentifier("org.example.QmlTest-" + std::to_string(getpid()));
  startApplicationOnce();
  engine = std::make_unique<QQmlEngine>();
  engine->addImportPath(QStringLiteral(KVL_QML_MODULES));
}

void QmlTest::TearDown() {
  root.reset();
  engine.reset();
  (void)KVLNotary::deleteKeys();
}

bool QmlTest::make(const QByteArray& text) {
  QQmlComponent component(engine.get());
  component.setData(
      "import QtQuick\nimport KVLocal\nQtObject {\nid: root\nproperty string said\n" + text + "}",
      {});
  root.reset(component.create());
  EXPECT_NE(root, nullptr) << component.errorString().toStdString();
  return root != nullptr;
}

bool QmlTest::load(const QString& file) {
  QQmlComponent component(engine.get(), QUrl::fromLocalFile(file));
  root.reset(component.create());
  EXPECT_NE(root, nullptr) << component.errorString().toStdString();
  return root != nullptr;
}

bool QmlTest::says(const QString& text) {
  const bool found = eventually([&] { return said() == text; });
  EXPECT_TRUE(found) << said().toStdString();
  return found;
}

}  // namespace kvltest
