// The module KVLocal of QML.
#include "qt/qml/Session.h"

#include <qqml.h>

#include <QQmlExtensionPlugin>

class KVLocalPlugin final : public QQmlExtensionPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

 public:
  void registerTypes(const char* uri) override {
    qmlRegisterUncreatableType<kvl::qt::SessionObject>(uri, 1, 0, "SessionObject",
                                                       QStringLiteral("Use Session."));
    qmlRegisterType<kvl::qt::Session>(uri, 1, 0, "Session");
    qmlRegisterType<kvl::qt::EventModel>(uri, 1, 0, "EventModel");
    qmlRegisterType<kvl::qt::Document>(uri, 1, 0, "DocumentModel");
  }
};

#include "Plugin.moc"
