// A document as QML uses it.
#pragma once

#include <local/qt/DocumentModel.h>

#include <QVariant>

namespace kvl::qt {

// The model of what a fetch brought, or a script made; `undefined` for none.
class Document : public DocumentModel {
  Q_OBJECT
  Q_PROPERTY(QVariant document READ document WRITE setVariant NOTIFY documentChanged)

 public:
  using DocumentModel::DocumentModel;

  [[nodiscard]] QVariant document() const { return document_; }
  void setVariant(const QVariant& document);

 Q_SIGNALS:
  void documentChanged();

 private:
  QVariant document_;
};

}  // namespace kvl::qt
