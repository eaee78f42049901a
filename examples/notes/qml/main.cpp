#include <local/local.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>

int main(int argc, char** argv) {
  const QGuiApplication application(argc, argv);
  kvl::setHostIdentifier("org.example.Notes");
  const QQmlApplicationEngine engine(QUrl("qrc:/Notes.qml"));
  return engine.rootObjects().isEmpty() ? 1 : QGuiApplication::exec();
}
