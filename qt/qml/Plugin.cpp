// The module KVLocal of QML.
#include "qt/qml/Document.h"
#include "qt/qml/ImageProvider.h"
#include "qt/qml/Session.h"

#include <local/qt/EventListModel.h>

#include <qqml.h>

#include <QQmlEngine>
#include <QQmlExtensionPlugin>

class KVLocalPlugin final : public QQmlExtensionPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

 public:
  void registerTypes(const char* uri) override {
    qmlRegisterUncreatableType<kvl::qt::SessionObject>(uri, 1, 0, "SessionObject",
                                                       QStringLiteral("Use Session."));
    qmlRegisterType<kvl::qt::Session>(uri, 1, 0, "Session");
    qmlRegisterType<kvl::qt::EventListModel>(uri, 1, 0, "EventModel");
    qmlRegisterType<kvl::qt::Document>(uri, 1, 0, "DocumentModel");
  }
  void initializeEngine(QQmlEngine* engine, const char* /*uri*/) override {
    static_cast<void>(kvl::qt::ImageProvider::of(*engine));
  }
};

#include "Plugin.moc"
