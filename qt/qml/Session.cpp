#include "qt/qml/Session.h"

#include "qt/qml/ImageProvider.h"
#include "qt/qml/Plain.h"

#include <local/KVLEncoding.h>
#include <local/platform/Translation.h>
#include <local/qt/Conversions.h>

#include <QPointer>
#include <QQmlEngine>
#include <optional>
#include <utility>

namespace kvl::qt {
namespace {

Fetched noForm() {
  return {std::nullopt, nullptr,
          Error(KVLEncoding::KVLEncodingErrorDomain, 400,
                {{NSLocalizedDescriptionKey, translatable("What was to be sent is no form.")}})};
}

}  // namespace

void Session::fetch(const QString& path, const QJSValue& then) {
  json(path, this, handlerOf(then));
}

void Session::submit(const QString& path, const QVariant& document, const QJSValue& then) {
  SessionObject::submit(value(plain(document)), path, this, handlerOf(then));
}

void Session::send(const QVariant& form, const QJSValue& then) {
  const auto description = value(plain(form)).dictionary();
  const Handler handler = handlerOf(then);
  if (!description) return tell(handler, noForm());
  const QPointer<Session> self(this);  // whatever opens addresses may destroy it
  const Exchange exchange =
      submitForm(*description, std::nullopt, QStringLiteral("/"), this, handler);
  // Nobody else tells of an action that the browser has opened.
  if (self && exchange.isOver()) tell(handler, {});
}

void Session::classBegin() {
  if (auto* engine = qmlEngine(this)) ImageProvider::of(*engine).addSource(session(), images());
}

SessionObject::Handler Session::handlerOf(const QJSValue& then) {
  if (!then.isCallable()) return nullptr;
  const quint64 number = ++lastNumber_;
  functions_.insert(number, then);
  return [this, number](const Fetched& fetched) { call(number, fetched); };
}

void Session::tell(const Handler& handler, const Fetched& fetched) {
  queue()->async([this, handler, fetched] {
    if (handler) return handler(fetched);
    if (!fetched.isGood()) Q_EMIT failed(fetched.outcome());
  });
}

// The function may destroy this object.
void Session::call(quint64 number, const Fetched& fetched) {
  const QJSValue function = functions_.take(number);
  auto* engine = qjsEngine(this);
  if (engine == nullptr || !function.isCallable()) return;
  const QVariant document = fetched.document ? variant(*fetched.document) : QVariant();
  const auto result = function.call(
      {QJSValue(fetched.isGood()), engine->toScriptValue(document), QJSValue(fetched.outcome())});
  if (result.isError()) {
    qWarning("%s:%d: %s", qUtf8Printable(result.property(QStringLiteral("fileName")).toString()),
             result.property(QStringLiteral("lineNumber")).toInt(),
             qUtf8Printable(result.toString()));
  }
}

}  // namespace kvl::qt
