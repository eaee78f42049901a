#include "qt/form/FormField.h"

#include "qt/PlainText.h"

#include <local/KVLEncoding.h>
#include <local/KVLInputFile.h>
#include <local/qt/Conversions.h>

#include <QCheckBox>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QPushButton>
#include <QSpinBox>
#include <limits>

namespace kvl::qt {
namespace {

class TextField : public FormField {
 public:
  TextField(const Dictionary& input, QWidget* parent)
      : FormField(input, parent), line_(new QLineEdit) {
    const auto text = KVLEncoding::stringFromDictionary(input, "value", String());
    line_->setText(qString(text->text()));
    setContent(line_);
  }

  [[nodiscard]] std::optional<Dictionary> input(QString& /*fault*/) const override {
    return withValue(utf8(line_->text()));
  }

 private:
  QLineEdit* const line_;
};

class NumberField : public FormField {
 public:
  NumberField(const Dictionary& input, QWidget* parent)
      : FormField(input, parent), number_(new QSpinBox) {
    number_->setRange(std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
    number_->setValue(static_cast<int>(KVLEncoding::integerFromDictionary(input, "value", 0)));
    setContent(number_);
  }

  [[nodiscard]] std::optional<Dictionary> input(QString& /*fault*/) const override {
    return withValue(number_->value());
  }

 private:
  QSpinBox* const number_;
};

class SwitchField : public FormField {
 public:
  SwitchField(const Dictionary& input, QWidget* parent)
      : FormField(input, parent), box_(new QCheckBox) {
    box_->setChecked(KVLEncoding::boolFromDictionary(input, "value", false));
    setContent(box_);
  }

  [[nodiscard]] std::optional<Dictionary> input(QString& /*fault*/) const override {
    return withValue(box_->isChecked());
  }

 private:
  QCheckBox* const box_;
};

// Numbers that the spin box cannot hold are shown, and sent, as they are written.
bool fits(const Value& value) {
  return value.kind() == Value::Kind::integer && std::in_range<int>(*value.integer());
}

Dictionary withText(Dictionary input) {
  if (input["value"].isNumber()) input.set("value", input["value"].description());
  return input;
}

constexpr qint64 kMebibyte = 1 << 20;

// In the head of a form's part a name with a line end would begin another line of the head.
bool hasLineEnd(const QString& name) {
  return name.contains(u'\n') || name.contains(u'\r');
}

// The contents; none and a fault when they cannot be had. Pipes and devices may never end.
std::optional<QByteArray> contentsOf(const QString& path, QString& fault) {
  const QFileInfo info(path);
  QFile file(path);
  if (hasLineEnd(info.fileName())) {
    fault = FileField::tr("There is a line end in the name of the file.");
  } else if (info.exists() && !info.isFile()) {
    fault = FileField::tr("This is no file.");
  } else if (!file.open(QIODevice::ReadOnly)) {
    fault = file.errorString();
  } else {
    auto contents = file.read(FileField::kMostBytes + 1);
    if (contents.size() > FileField::kMostBytes)
      fault =
          FileField::tr("The file is larger than %1 MiB.").arg(FileField::kMostBytes / kMebibyte);
    else if (file.error() != QFileDevice::NoError)
      fault = file.errorString();
    else
      return contents;
  }
  return std::nullopt;
}

}  // namespace

FormField::FormField(const Dictionary& input, QWidget* parent)
    : QWidget(parent), description_(input) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
}

FormField* FormField::make(const Dictionary& input, QWidget* parent) {
  const auto type = KVLEncoding::stringFromDictionary(input, "type", String());
  const Value& value = input["value"];
  if (type->text() == "file") return new FileField(input, parent);
  if (value.kind() == Value::Kind::boolean) return new SwitchField(input, parent);
  if (fits(value)) return new NumberField(input, parent);
  return new TextField(withText(input), parent);
}

QString FormField::label() const {
  const auto name = KVLEncoding::stringFromDictionary(description_, "name", String());
  return lineOf(KVLEncoding::stringFromDictionary(description_, "label", name)->text());
}

void FormField::setContent(QWidget* content) {
  content->setAccessibleName(label());
  layout()->addWidget(content);
  setFocusProxy(content);
}

Dictionary FormField::withValue(const Value& value) const {
  Dictionary input = description_;
  input.set("value", value);
  return input;
}

FileField::FileField(const Dictionary& input, QWidget* parent)
    : FormField(input, parent), path_(new QLineEdit) {
  path_->setPlaceholderText(tr("No file"));
  setContent(path_);
  auto* chooser = new QPushButton(tr("Choose…"));
  chooser->setAutoDefault(false);
  chooser->setAccessibleName(tr("Choose a file: %1").arg(isolated(label())));
  connect(chooser, &QPushButton::clicked, this, &FileField::choose);
  layout()->addWidget(chooser);
}

void FileField::setPath(const QString& path) {
  path_->setText(path);
}

void FileField::choose() {
  auto* dialog = new QFileDialog(this, label());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFile);
  connect(dialog, &QFileDialog::fileSelected, this, &FileField::setPath);
  dialog->open();
}

std::optional<Dictionary> FileField::input(QString& fault) const {
  if (path_->text().isEmpty()) return std::nullopt;
  QString reason;
  const auto contents = contentsOf(path_->text(), reason);
  if (!contents) {
    const QString path = lineOf(utf8(path_->text()));
    fault = tr("%1: %2").arg(isolated(path), reason);
    return std::nullopt;
  }
  const QFileInfo info(path_->text());
  const QString type = QMimeDatabase().mimeTypeForFile(info).name();
  return withValue(Value(KVLInputFile::newWithFilename(
      utf8(info.fileName()), utf8(type), Data::adoptingText(contents->toStdString()))));
}

}  // namespace kvl::qt
