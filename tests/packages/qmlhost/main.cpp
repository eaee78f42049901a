#include <QCoreApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <iostream>
#include <memory>

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  QQmlEngine engine;
  QQmlComponent component(&engine);
  component.setData("import KVLocal\nSession {}", QUrl());
  const std::unique_ptr<QObject> session(component.create());
  if (session) return 0;
  std::cerr << component.errorString().toStdString();
  return 1;
}
