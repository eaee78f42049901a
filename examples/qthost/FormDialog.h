// A form of the service, to be filled in.
#pragma once

#include "examples/qthost/Host.h"
#include "examples/qthost/Outcome.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Value.h>

#include <QDialog>
#include <QPointer>
#include <vector>

class QPushButton;

namespace qthost {

class DocumentTree;
class FieldArea;
class FileField;
class FormField;

// A field for each input of a form, files to be added, and what the service answers.
class FormDialog : public QDialog {
  Q_OBJECT

 public:
  // `path` is where a form without an action goes. The host must outlive this.
  FormDialog(Host& host, const QString& title, const kvl::Dictionary& form,
             KVLEncoding::RelativePath path, QWidget* parent = nullptr);

  // A field for one more file.
  FileField* addFile();
  void submit();
  // Whether the service has answered what was submitted last.
  [[nodiscard]] bool isAnswered() const { return isAnswered_; }

 Q_SIGNALS:
  void submitted(const QString& title, const QString& outcome);

 private:
  void addFields();
  void addWidgets();
  // Makes room for what is shown, as far as the screen has it.
  void grow();
  // What the fields hold; absent when one of them is at fault, which is then told.
  [[nodiscard]] std::optional<kvl::Array> inputsOf(const std::vector<FormField*>& fields);
  void take(const Outcome& outcome, const std::optional<kvl::Value>& answer);

  Host& host_;
  const kvl::Dictionary form_;
  const KVLEncoding::RelativePath path_;
  FieldArea* const area_;
  Notice* const notice_;
  DocumentTree* const answer_;
  QPushButton* const submit_;
  bool isAnswered_ = false;
  QPointer<QWidget> refuge_;        // who got the focus of the button that submits
  std::vector<FormField*> fields_;  // the form's own
  std::vector<FormField*> files_;   // those that were added
};

}  // namespace qthost
