// The inputs of forms as widgets.
#pragma once

#include <local/platform/Value.h>

#include <QString>
#include <QWidget>
#include <memory>
#include <optional>
#include <string>

class QLineEdit;

namespace kvl::qt {

// One input of a form: a dictionary with a "name" and perhaps a "value". A "label" and the "type"
// "file" are agreements of this host with its service.
class FormField : public QWidget {
  Q_OBJECT

 public:
  // The field for an input: a line of text, a number, a switch, or a file.
  [[nodiscard]] static FormField* make(const Dictionary& input, QWidget* parent);

  [[nodiscard]] QString label() const;

  // The input with the value that the user has given it; none when there is nothing to send. What
  // is wrong with it, if anything, is in `fault`.
  [[nodiscard]] virtual std::optional<Dictionary> input(QString& fault) const = 0;

 protected:
  FormField(const Dictionary& input, QWidget* parent);

  // The field's one widget.
  void setContent(QWidget* content);
  [[nodiscard]] const Dictionary& description() const { return description_; }
  [[nodiscard]] Dictionary withValue(const Value& value) const;

 private:
  const Dictionary description_;
};

// A file that the user names or chooses.
class FileField : public FormField {
  Q_OBJECT

 public:
  static constexpr qint64 kMostBytes = 256 << 20;  // it is read while the window waits

  FileField(const Dictionary& input, QWidget* parent);

  void setPath(const QString& path);
  // Opens a file chooser, which belongs to the field.
  void choose();

  [[nodiscard]] std::optional<Dictionary> input(QString& fault) const override;

 private:
  QLineEdit* const path_;
};

}  // namespace kvl::qt
