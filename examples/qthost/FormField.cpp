#include "examples/qthost/FormField.h"

#include "examples/qthost/Texts.h"

#include <local/KVLEncoding.h>
#include <local/qt/Conversions.h>

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QSpinBox>
#include <limits>

namespace qthost {
namespace {

class TextField : public FormField {
 public:
  TextField(const kvl::Dictionary& input, QWidget* parent)
      : FormField(input, parent), line_(new QLineEdit) {
    const auto text = KVLEncoding::stringFromDictionary(input, "value", kvl::String());
    line_->setText(kvl::qt::qString(text->text()));
    setContent(line_);
  }

  [[nodiscard]] std::optional<kvl::Dictionary> input(QString& /*fault*/) const override {
    return withValue(kvl::qt::utf8(line_->text()));
  }

 private:
  QLineEdit* const line_;
};

class NumberField : public FormField {
 public:
  NumberField(const kvl::Dictionary& input, QWidget* parent)
      : FormField(input, parent), number_(new QSpinBox) {
    number_->setRange(std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
    number_->setValue(static_cast<int>(KVLEncoding::integerFromDictionary(input, "value", 0)));
    setContent(number_);
  }

  [[nodiscard]] std::optional<kvl::Dictionary> input(QString& /*fault*/) const override {
    return withValue(number_->value());
  }

 private:
  QSpinBox* const number_;
};

class SwitchField : public FormField {
 public:
  SwitchField(const kvl::Dictionary& input, QWidget* parent)
      : FormField(input, parent), box_(new QCheckBox) {
    box_->setChecked(KVLEncoding::boolFromDictionary(input, "value", false));
    setContent(box_);
  }

  [[nodiscard]] std::optional<kvl::Dictionary> input(QString& /*fault*/) const override {
    return withValue(box_->isChecked());
  }

 private:
  QCheckBox* const box_;
};

// Numbers that the spin box cannot hold are shown, and sent, as they are written.
bool fits(const kvl::Value& value) {
  return value.kind() == kvl::Value::Kind::integer && std::in_range<int>(*value.integer());
}

kvl::Dictionary withText(kvl::Dictionary input) {
  if (input["value"].isNumber()) input.set("value", input["value"].description());
  return input;
}

}  // namespace

FormField::FormField(const kvl::Dictionary& input, QWidget* parent)
    : QWidget(parent), description_(input) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
}

FormField* FormField::make(const kvl::Dictionary& input, QWidget* parent) {
  const auto type = KVLEncoding::stringFromDictionary(input, "type", kvl::String());
  const kvl::Value& value = input["value"];
  if (type->text() == "file") return new FileField(input, parent);
  if (value.kind() == kvl::Value::Kind::boolean) return new SwitchField(input, parent);
  if (fits(value)) return new NumberField(input, parent);
  return new TextField(withText(input), parent);
}

QString FormField::label() const {
  const auto name = KVLEncoding::stringFromDictionary(description_, "name", kvl::String());
  return lineOf(KVLEncoding::stringFromDictionary(description_, "label", name)->text());
}

void FormField::setContent(QWidget* content) {
  content->setAccessibleName(label());
  layout()->addWidget(content);
  setFocusProxy(content);
}

kvl::Dictionary FormField::withValue(const kvl::Value& value) const {
  kvl::Dictionary input = description_;
  input.set("value", value);
  return input;
}

}  // namespace qthost
