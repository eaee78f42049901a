// Documents of the service, fetched and shown.
#pragma once

#include <local/qt/DocumentTree.h>
#include <local/qt/Notice.h>
#include <local/qt/SessionObject.h>

#include <QWidget>

class QLineEdit;

namespace qthost {

// A path to type, and the document there. What goes wrong is told in place, and the document that
// was shown stays. It is tried again when the session is established anew.
class DocumentView : public QWidget {
  Q_OBJECT

 public:
  // Shows the document at `path` as soon as it can be had. The session must outlive this.
  DocumentView(kvl::qt::SessionObject& session, const QString& path, QWidget* parent = nullptr);

  void fetch(const QString& path);

 Q_SIGNALS:
  // A fetch has ended, well or not.
  void shown(const QString& path, const QString& outcome);

 private:
  void fetchWhereDue();
  void request(const QString& path);
  void take(const QString& path, const kvl::qt::Fetched& fetched);

  kvl::qt::SessionObject& session_;
  QLineEdit* const path_;
  kvl::qt::Notice* const notice_;
  kvl::qt::DocumentTree* const tree_;
  int fetches_ = 0;  // only the last one is shown
  QString failed_;   // the path of the document that is missing; empty for none
};

}  // namespace qthost
