#include <local/local.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>

int main(int argc, char** argv) {
  const QGuiApplication application(argc, argv);
  kvl::setHostIdentifier("org.example.QmlHost");
  const QQmlApplicationEngine engine(QUrl("qrc:/Main.qml"));
  return engine.rootObjects().isEmpty() ? 1 : QGuiApplication::exec();
}
