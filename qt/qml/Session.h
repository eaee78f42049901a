// A session and models as QML uses them.
#pragma once

#include <local/qt/DocumentModel.h>
#include <local/qt/EventListModel.h>
#include <local/qt/SessionObject.h>

#include <QJSValue>
#include <QPointer>
#include <QVariant>

namespace kvl::qt {

// The session of `SessionObject`, with fetches whose outcome a function of the page of QML takes:
// whether all went well, the document, and a text about the outcome. It is not called once this
// object has gone.
class Session : public SessionObject {
  Q_OBJECT

 public:
  using SessionObject::SessionObject;

  Q_INVOKABLE void fetch(const QString& path, const QJSValue& then);
  Q_INVOKABLE void submit(const QString& path, const QVariant& document, const QJSValue& then);

 private:
  Handler handlerOf(const QJSValue& then);
};

// The latest events of a session.
class EventModel : public EventListModel {
  Q_OBJECT
  Q_PROPERTY(kvl::qt::SessionObject* session READ session WRITE setSession NOTIFY sessionChanged)

 public:
  using EventListModel::EventListModel;

  [[nodiscard]] SessionObject* session() const { return session_; }
  void setSession(SessionObject* session);

 Q_SIGNALS:
  void sessionChanged();

 private:
  QPointer<SessionObject> session_;
};

// A document as a fetch brought it.
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
