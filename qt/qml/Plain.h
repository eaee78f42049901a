// What QML hands over.
#pragma once

#include <QJSValue>
#include <QVariant>

namespace kvl::qt {

// The same without what only the engine of a script understands.
inline QVariant plain(const QVariant& variant) {
  const bool isOfScript = variant.metaType() == QMetaType::fromType<QJSValue>();
  return isOfScript ? variant.value<QJSValue>().toVariant() : variant;
}

}  // namespace kvl::qt
