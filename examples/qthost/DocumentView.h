// Documents of the service, fetched and shown.
#pragma once

#include "examples/qthost/Host.h"
#include "examples/qthost/Outcome.h"

#include <local/platform/Value.h>

#include <QWidget>

class QLineEdit;

namespace qthost {

class DocumentTree;

// A path to type, and the document there. What goes wrong is told in place, and the document that
// was shown stays. It is tried again when the session is established anew.
class DocumentView : public QWidget {
  Q_OBJECT

 public:
  // Shows the document at `path` as soon as it can be had. The host must outlive this.
  DocumentView(Host& host, const QString& path, QWidget* parent = nullptr);

  void fetch(const QString& path);

 Q_SIGNALS:
  // A fetch has ended, well or not.
  void shown(const QString& path, const QString& outcome);

 private:
  struct Answer {
    QString path;
    std::optional<kvl::Value> document;
    Outcome outcome;
  };

  void fetchWhereDue();
  void request(const QString& path);
  void take(int number, const Answer& answer);

  Host& host_;
  QLineEdit* const path_;
  Notice* const notice_;
  DocumentTree* const tree_;
  int fetches_ = 0;  // only the last one is shown
  QString failed_;   // the path of the document that is missing; empty for none
};

}  // namespace qthost
