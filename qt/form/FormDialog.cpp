#include "qt/PlainText.h"
#include "qt/form/FormField.h"

#include <local/KVLEncodingForm.h>
#include <local/qt/Conversions.h>
#include <local/qt/DocumentTree.h>
#include <local/qt/Fetched.h>
#include <local/qt/FormDialog.h>
#include <local/qt/GuiThread.h>
#include <local/qt/Notice.h>

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <algorithm>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

constexpr int kUsualWidth = 440;
constexpr qsizetype kLongestLabel = 60;
constexpr int kLeastHeight = 60;

// Where the keyboard stops in a field, which may be made of several widgets.
QList<QWidget*> stopsIn(QWidget* field) {
  if (field->focusPolicy() & Qt::TabFocus) return {field};
  QList<QWidget*> stops;
  for (auto* part : field->findChildren<QWidget*>())
    if (part->focusPolicy() & Qt::TabFocus && part->focusProxy() == nullptr) stops.append(part);
  return stops;
}

// Labels and fields in rows. It wants the room that all need, but no more than half of the screen,
// and scrolls where there is less.
class FieldArea : public QScrollArea {
 public:
  explicit FieldArea(QWidget* parent);

  // Appends a row; the keyboard reaches it after the one above.
  void addRow(const QString& label, QWidget* field);

  [[nodiscard]] QSize sizeHint() const override { return bounded(widget()->sizeHint()); }
  [[nodiscard]] QSize minimumSizeHint() const override;

 private:
  [[nodiscard]] QSize bounded(QSize size) const {
    return size.boundedTo(screen()->availableSize() / 2);
  }

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
  words->setText(escaped(shortened(label, kLongestLabel)));
  words->setBuddy(field);
  rows_->addRow(words, field);
  for (auto* stop : stopsIn(field)) QWidget::setTabOrder(std::exchange(last_, stop), stop);
  updateGeometry();
}

QSize FieldArea::minimumSizeHint() const {
  const QSize least = widget()->minimumSizeHint();
  return bounded({least.width() + verticalScrollBar()->sizeHint().width(),
                  std::min(least.height(), kLeastHeight)});
}

}  // namespace

class FormDialog::Implementation {
 public:
  Implementation(FormDialog& dialog, std::shared_ptr<KVLSession> session, const Dictionary& form,
                 const QString& path)
      : dialog_(dialog),
        session_(std::move(session)),
        form_(form),
        path_(utf8(path)),
        queue_(queueOf(dialog)),
        area_(new FieldArea(&dialog)),
        notice_(new Notice),
        tree_(new DocumentTree),
        more_(new QPushButton(tr("&Add a file…"))),
        submit_(new QPushButton(tr("&Submit"))) {
    addFields();
    addWidgets();
  }
  ~Implementation() { exchange_.cancel(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void setAllowsFiles(bool allows) { more_->setVisible(allows); }
  FileField* addFile();
  void submit();
  void cancel() { exchange_.cancel(); }
  // Makes room for what is shown, as far as the screen has it.
  void grow();

  [[nodiscard]] bool isAnswered() const { return isAnswered_; }
  [[nodiscard]] const std::optional<Value>& answer() const { return answer_; }

 private:
  void addFields();
  void addWidgets();
  // What the fields hold; absent when one of them is at fault, which is then told.
  [[nodiscard]] std::optional<Array> inputsOf(const std::vector<FormField*>& fields);
  void take(const Fetched& fetched);

  FormDialog& dialog_;
  const std::shared_ptr<KVLSession> session_;
  const Dictionary form_;
  const KVLEncoding::RelativePath path_;
  const std::shared_ptr<DispatchQueue> queue_;
  FieldArea* const area_;
  Notice* const notice_;
  DocumentTree* const tree_;
  QPushButton* const more_;
  QPushButton* const submit_;
  bool isAnswered_ = false;
  std::optional<Value> answer_;
  Exchange exchange_;
  QPointer<QWidget> refuge_;        // who got the focus of the button that submits
  std::vector<FormField*> fields_;  // the form's own
  std::vector<FormField*> files_;   // those that were added
};

void FormDialog::Implementation::addFields() {
  const auto inputs = KVLEncoding::arrayFromDictionary(form_, "inputs", Array());
  for (const Value& input : *inputs) {
    const auto description = input.dictionary();
    if (!description) continue;
    fields_.push_back(FormField::make(*description, &dialog_));
    area_->addRow(fields_.back()->label(), fields_.back());
  }
}

void FormDialog::Implementation::addWidgets() {
  auto* close = new QPushButton(tr("&Close"));
  for (QPushButton* button : {more_, close}) button->setAutoDefault(false);
  submit_->setDefault(true);
  tree_->setAccessibleName(tr("Answer of the service"));
  tree_->hide();
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(more_);
  buttons->addStretch();
  buttons->addWidget(close);
  buttons->addWidget(submit_);
  auto* layout = new QVBoxLayout(&dialog_);
  layout->addWidget(area_);
  layout->addWidget(notice_);
  layout->addWidget(tree_, 1);
  layout->addLayout(buttons);
  connect(more_, &QPushButton::clicked, &dialog_, [this] { addFile()->choose(); });
  connect(submit_, &QPushButton::clicked, &dialog_, &FormDialog::submit);
  connect(close, &QPushButton::clicked, &dialog_, &QDialog::reject);
}

FileField* FormDialog::Implementation::addFile() {
  auto* field = new FileField({{"name", "file"}, {"label", utf8(tr("File"))}}, &dialog_);
  files_.push_back(field);
  area_->addRow(field->label(), field);
  grow();
  QTimer::singleShot(0, field, [this, field] { area_->ensureWidgetVisible(field); });
  return field;
}

void FormDialog::Implementation::grow() {
  dialog_.layout()->activate();
  const QSize most = dialog_.screen()->availableSize();
  dialog_.resize(dialog_.size().expandedTo(dialog_.sizeHint()).boundedTo(most));
}

std::optional<Array> FormDialog::Implementation::inputsOf(const std::vector<FormField*>& fields) {
  Array inputs;
  for (const FormField* field : fields) {
    QString fault;
    if (const auto input = field->input(fault)) inputs.append(*input);
    if (fault.isEmpty()) continue;
    notice_->showError(fault);
    return std::nullopt;
  }
  return inputs;
}

void FormDialog::Implementation::submit() {
  if (!submit_->isEnabled()) return;
  const auto inputs = inputsOf(fields_);
  const auto files = inputs ? inputsOf(files_) : std::nullopt;
  if (!files) return;
  Dictionary form = form_;
  form.set("inputs", *inputs);
  const bool hasFocus = dialog_.focusWidget() == submit_;
  submit_->setEnabled(false);
  refuge_ = hasFocus ? dialog_.focusWidget() : nullptr;
  isAnswered_ = false;
  notice_->showOutcome(tr("Sending…"));
  KVLEncoding::FormOptions options;
  options.queue = queue_;
  exchange_ = KVLEncoding::submitForm(
      form, files, path_, *session_,
      [this](const std::optional<Data>& body, const URLResponseRef& response,
             const std::optional<Error>& error) {
        take({KVLEncoding::rootFromResponse(response, body), response, error});
      },
      options);
}

void FormDialog::Implementation::take(const Fetched& fetched) {
  submit_->setEnabled(true);
  if (refuge_ && refuge_ == dialog_.focusWidget()) submit_->setFocus();
  isAnswered_ = true;
  answer_ = fetched.document;
  if (fetched.isGood()) {
    notice_->showOutcome(tr("The service has answered: %1").arg(fetched.outcome()));
  } else {
    notice_->showError(fetched.outcome());
  }
  tree_->setVisible(answer_.has_value());
  if (answer_) tree_->setDocument(*answer_);
  grow();
  Q_EMIT dialog_.submitted(dialog_.windowTitle(), fetched.outcome(), fetched.isGood());
}

FormDialog::FormDialog(std::shared_ptr<KVLSession> session, const QString& title,
                       const Dictionary& form, const QString& path, QWidget* parent)
    : QDialog(parent),
      implementation_(std::make_unique<Implementation>(*this, std::move(session), form, path)) {
  setWindowTitle(title);
  resize(kUsualWidth, 0);
  implementation_->grow();
}

FormDialog::~FormDialog() = default;

void FormDialog::setAllowsFiles(bool allows) {
  implementation_->setAllowsFiles(allows);
}

void FormDialog::addFile(const QString& path) {
  implementation_->addFile()->setPath(path);
}

void FormDialog::submit() {
  implementation_->submit();
}

bool FormDialog::isAnswered() const {
  return implementation_->isAnswered();
}

std::optional<Value> FormDialog::answer() const {
  return implementation_->answer();
}

void FormDialog::done(int result) {
  implementation_->cancel();
  QDialog::done(result);
}

}  // namespace kvl::qt
