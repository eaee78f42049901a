#include "qt/qml/Document.h"

#include "qt/qml/Plain.h"

#include <local/qt/Conversions.h>

namespace kvl::qt {

void Document::setVariant(const QVariant& document) {
  document_ = plain(document);
  if (document_.isValid()) {
    setDocument(value(document_));
  } else {
    clear();
  }
  Q_EMIT documentChanged();
}

}  // namespace kvl::qt
