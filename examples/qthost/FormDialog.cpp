#include "examples/qthost/FormDialog.h"

#include "examples/qthost/DocumentTree.h"
#include "examples/qthost/FormField.h"
#include "examples/qthost/GuiThread.h"
#include "examples/qthost/Texts.h"

#include <local/KVLEncodingForm.h>

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <algorithm>
#include <utility>

namespace qthost {
namespace {

constexpr int kUsualWidth = 440;

constexpr int kLongestLabel = 60;
constexpr int kLeastHeight = 60;

// Where the keyboard stops in a field, which may be made of several widgets.
QList<QWidget*> stopsIn(QWidget* field) {
  if (field->focusPolicy() & Qt::TabFocus) return {field};
  QList<QWidget*> stops;
  for (auto* part : field->findChildren<QWidget*>())
    if (part->focusPolicy() & Qt::TabFocus && part->focusProxy() == nullptr) stops.append(part);
  return stops;
}

}  // namespace

// Labels and fields in rows. It wants the room that all need, but no more than half of the screen,
// and scrolls where there is less.
class FieldArea : public QScrollArea {
 public:
  explicit FieldArea(QWidget* parent = nullptr);

  // Appends a row; the keyboard reaches it after the one above.
  void addRow(const QString& label, QWidget* field);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 private:
  [[nodiscard]] QSize bounded(QSize size) const;

  QFormLayout* const rows_;
  QWidget* last_;
};

FieldArea::FieldArea(QWidget* parent)
    : QScrollArea(parent), rows_(new QFormLayout(new QWidget)), last_(this) {
  rows_->setContentsMargins(0, 0, 0, 0);
  setWidget(rows_->parentWidget());
  setWidgetResizable(true);
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::NoFocus);
}

void FieldArea::addRow(const QString& label, QWidget* field) {
  auto* words = new QLabel;
  words->setTextFormat(Qt::PlainText);
  words->setText(withoutMnemonic(lineOf(label.toStdString(), kLongestLabel)));
  words->setBuddy(field);
  rows_->addRow(words, field);
  for (auto* stop : stopsIn(field)) QWidget::setTabOrder(std::exchange(last_, stop), stop);
  updateGeometry();
}

QSize FieldArea::sizeHint() const {
  return bounded(widget()->sizeHint());
}

QSize FieldArea::minimumSizeHint() const {
  const QSize least = widget()->minimumSizeHint();
  return bounded({least.width() + verticalScrollBar()->sizeHint().width(),
                  std::min(least.height(), kLeastHeight)});
}

QSize FieldArea::bounded(QSize size) const {
  return size.boundedTo(screen()->availableSize() / 2);
}

FormDialog::FormDialog(Host& host, const QString& title, const kvl::Dictionary& form,
                       KVLEncoding::RelativePath path, QWidget* parent)
    : QDialog(parent),
      host_(host),
      form_(form),
      path_(std::move(path)),
      area_(new FieldArea(this)),
      notice_(new Notice),
      answer_(new DocumentTree),
      submit_(new QPushButton(tr("&Submit"))) {
  setWindowTitle(title);
  addFields();
  addWidgets();
  resize(kUsualWidth, 0);
  grow();
}

void FormDialog::addFields() {
  const auto inputs = KVLEncoding::arrayFromDictionary(form_, "inputs", kvl::Array());
  for (const kvl::Value& input : *inputs) {
    const auto description = input.dictionary();
    if (!description) continue;
    fields_.push_back(FormField::make(*description, this));
    area_->addRow(fields_.back()->label(), fields_.back());
  }
}

void FormDialog::addWidgets() {
  auto* more = new QPushButton(tr("&Add a file…"));
  auto* close = new QPushButton(tr("&Close"));
  for (QPushButton* button : {more, close}) button->setAutoDefault(false);
  submit_->setDefault(true);
  answer_->setAccessibleName(tr("Answer of the service"));
  answer_->hide();
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(more);
  buttons->addStretch();
  buttons->addWidget(close);
  buttons->addWidget(submit_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(area_);
  layout->addWidget(notice_);
  layout->addWidget(answer_, 1);
  layout->addLayout(buttons);
  connect(more, &QPushButton::clicked, this, [this] { addFile()->choose(); });
  connect(submit_, &QPushButton::clicked, this, &FormDialog::submit);
  connect(close, &QPushButton::clicked, this, &QDialog::reject);
}

FileField* FormDialog::addFile() {
  auto* field = new FileField({{"name", "file"}, {"label", kvl::Value("File")}}, this);
  files_.push_back(field);
  area_->addRow(field->label(), field);
  grow();
  QTimer::singleShot(0, field, [this, field] { area_->ensureWidgetVisible(field); });
  return field;
}

void FormDialog::grow() {
  layout()->activate();
  resize(size().expandedTo(sizeHint()).boundedTo(screen()->availableSize()));
}

std::optional<kvl::Array> FormDialog::inputsOf(const std::vector<FormField*>& fields) {
  kvl::Array inputs;
  for (const FormField* field : fields) {
    QString fault;
    if (const auto input = field->input(fault)) inputs.append(*input);
    if (fault.isEmpty()) continue;
    notice_->showError(fault);
    return std::nullopt;
  }
  return inputs;
}

void FormDialog::submit() {
  const auto inputs = inputsOf(fields_);
  const auto files = inputs ? inputsOf(files_) : std::nullopt;
  if (!files) return;
  kvl::Dictionary form = form_;
  form.set("inputs", *inputs);
  const bool hasFocus = focusWidget() == submit_;
  submit_->setEnabled(false);
  refuge_ = hasFocus ? focusWidget() : nullptr;
  isAnswered_ = false;
  notice_->showOutcome(tr("Sending…"));
  // The answer comes on the framework's queue, and the dialog may be closed by then.
  KVLEncoding::submitForm(
      form, files, path_, host_.session(),
      [dialog = QPointer(this)](const std::optional<kvl::Data>& body,
                                const kvl::URLResponseRef& response,
                                const std::optional<kvl::Error>& error) {
        auto outcome = outcomeOf(response, error);
        auto answer = KVLEncoding::rootFromResponse(response, body);
        onGuiThread(dialog, [outcome, answer](FormDialog& self) { self.take(outcome, answer); });
      });
}

void FormDialog::take(const Outcome& outcome, const std::optional<kvl::Value>& answer) {
  submit_->setEnabled(true);
  if (refuge_ && refuge_ == focusWidget()) submit_->setFocus();
  isAnswered_ = true;
  if (outcome.isGood) {
    notice_->showOutcome(tr("The service has answered: %1").arg(outcome.text));
  } else {
    notice_->showError(outcome.text);
  }
  answer_->setVisible(answer.has_value());
  if (answer) answer_->setDocument(*answer);
  grow();
  Q_EMIT submitted(windowTitle(), outcome.text);
}

}  // namespace qthost
