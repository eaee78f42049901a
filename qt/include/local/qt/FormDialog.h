/// @file
/// Forms of a service, to be filled in.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <QDialog>
#include <QString>
#include <memory>
#include <optional>

namespace kvl::qt {

/// A dialog with a field for each input of a form (see `KVLEncodingForm.h`): a line of text, a
/// number, a switch for a boolean, or a file where the input's "type" is "file". A "label" stands
/// for the "name" beside the field; both are agreements with the service. It submits the form,
/// tells what came of it in place, shows the answer if it is a document, and stays until it is
/// closed.
///
/// A file is read when the form is submitted; one that cannot be read, is no regular file, is
/// larger than 256 MiB or has a line end in its name is told, and nothing is sent.
///
/// Closing it, with `reject` too, or destroying it cancels what is under way. GUI thread.
class KVL_EXPORT FormDialog : public QDialog {
  Q_OBJECT

 public:
  /// @param session not null
  /// @param path where a form without an action goes
  FormDialog(std::shared_ptr<KVLSession> session, const QString& title, const Dictionary& form,
             const QString& path, QWidget* parent = nullptr);
  ~FormDialog() override;

  /// Whether there is a button that adds a field for one more file, which is sent as an input
  /// called "file". Yes unless set otherwise.
  void setAllowsFiles(bool allows);
  /// A field for one more file.
  void addFile(const QString& path = {});

  /// As the button does: while a submission is under way, nothing.
  void submit();
  /// Whether the service has answered what was submitted last.
  [[nodiscard]] bool isAnswered() const;
  /// The document that the service answered with, if there was one.
  [[nodiscard]] std::optional<Value> answer() const;

 public Q_SLOTS:
  /// Cancels what is under way, and closes.
  void done(int result) override;

 Q_SIGNALS:
  /// The service has answered, or will not: `outcome` is a status such as "200 OK", or what went
  /// wrong. A status of 300 and more is not good. What a closed dialog had under way is told as
  /// cancelled when its answer has not come before, and not at all once the dialog has gone. May
  /// destroy the dialog.
  void submitted(const QString& title, const QString& outcome, bool isGood);

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
