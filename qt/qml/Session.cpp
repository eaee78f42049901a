#include "qt/qml/Session.h"

#include "qt/qml/ImageProvider.h"
#include "qt/qml/Plain.h"

#include <local/qt/Conversions.h>

#include <QQmlEngine>
#include <utility>

namespace kvl::qt {

void Session::fetch(const QString& path, const QJSValue& then) {
  json(path, this, handlerOf(then));
}

void Session::submit(const QString& path, const QVariant& document, const QJSValue& then) {
  SessionObject::submit(value(plain(document)), path, this, handlerOf(then));
}

void Session::send(const QVariant& form, const QJSValue& then) {
  const auto description = value(plain(form)).dictionary();
  submitForm(description.value_or(Dictionary()), std::nullopt, QStringLiteral("/"), this,
             handlerOf(then));
}

void Session::classBegin() {
  if (auto* engine = qmlEngine(this)) ImageProvider::of(*engine).addSource(images());
}

SessionObject::Handler Session::handlerOf(const QJSValue& then) {
  if (!then.isCallable()) return nullptr;
  const quint64 number = ++lastNumber_;
  functions_.insert(number, then);
  return [this, number](const Fetched& fetched) { call(number, fetched); };
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
