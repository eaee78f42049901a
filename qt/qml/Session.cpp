#include "qt/qml/Session.h"

#include <local/qt/Conversions.h>

#include <QJSEngine>
#include <utility>

namespace kvl::qt {
namespace {

// What a script made, without what only its engine understands.
QVariant plain(const QVariant& variant) {
  return variant.canConvert<QJSValue>() ? variant.value<QJSValue>().toVariant() : variant;
}

}  // namespace

void Session::fetch(const QString& path, const QJSValue& then) {
  json(path, this, handlerOf(then));
}

void Session::submit(const QString& path, const QVariant& document, const QJSValue& then) {
  SessionObject::submit(value(plain(document)), path, this, handlerOf(then));
}

SessionObject::Handler Session::handlerOf(const QJSValue& then) {
  if (!then.isCallable()) return nullptr;
  return [this, then](const Fetched& fetched) {
    auto* engine = qjsEngine(this);
    if (engine == nullptr) return;
    const QVariant document = fetched.document ? variant(*fetched.document) : QVariant();
    const auto result = then.call(
        {QJSValue(fetched.isGood()), engine->toScriptValue(document), QJSValue(fetched.outcome())});
    if (result.isError()) qWarning("%s", qUtf8Printable(result.toString()));
  };
}

void EventModel::setSession(SessionObject* session) {
  if (session == session_) return;
  if (session_) session_->disconnect(this);
  session_ = session;
  if (session_) connect(session_, &SessionObject::eventsReceived, this, &EventListModel::append);
  Q_EMIT sessionChanged();
}

void Document::setVariant(const QVariant& document) {
  document_ = plain(document);
  setDocument(value(document_));
  Q_EMIT documentChanged();
}

}  // namespace kvl::qt
