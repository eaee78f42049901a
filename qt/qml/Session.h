// A session as QML uses it.
#pragma once

#include <local/qt/SessionObject.h>

#include <QHash>
#include <QJSValue>
#include <QQmlParserStatus>
#include <QVariant>

namespace kvl::qt {

// The session of `SessionObject`, with fetches whose outcome a function of QML takes: whether all
// went well, the document, and a text about the outcome. Each is called once, and not any more when
// this object has gone; where there is none, a failure is told by `failed`.
//
// The first one of an engine that has not ended is where "image://kvlocal/" gets its images.
class Session : public SessionObject, public QQmlParserStatus {
  Q_OBJECT
  Q_INTERFACES(QQmlParserStatus)

 public:
  using SessionObject::SessionObject;

  Q_INVOKABLE void fetch(const QString& path, const QJSValue& then = {});
  Q_INVOKABLE void submit(const QString& path, const QVariant& document, const QJSValue& then = {});
  // `form` as the service described it, with the values of its inputs. What is no object is
  // refused, and all has gone well once the browser has opened what a form is for.
  Q_INVOKABLE void send(const QVariant& form, const QJSValue& then = {});

  void classBegin() override;
  void componentComplete() override {}

 private:
  Handler handlerOf(const QJSValue& then);
  void call(quint64 number, const Fetched& fetched);
  // Later, as what a fetch brings.
  void tell(const Handler& handler, const Fetched& fetched);

  // A function belongs to the engine's thread, but a handler may go on any; it has the number.
  QHash<quint64, QJSValue> functions_;
  quint64 lastNumber_ = 0;
};

}  // namespace kvl::qt
