#include "examples/qthost/DocumentView.h"

#include "examples/qthost/DocumentTree.h"
#include "examples/qthost/GuiThread.h"

#include <local/KVLEncodingSession.h>
#include <local/qt/Conversions.h>

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace qthost {

DocumentView::DocumentView(Host& host, const QString& path, QWidget* parent)
    : QWidget(parent),
      host_(host),
      path_(new QLineEdit(path)),
      notice_(new Notice),
      tree_(new DocumentTree) {
  auto* label = new QLabel(tr("&Document"));
  label->setBuddy(path_);
  path_->setAccessibleName(tr("Path of the document"));
  tree_->setAccessibleName(tr("Document"));
  auto* button = new QPushButton(tr("&Fetch"));
  auto* line = new QHBoxLayout;
  for (QWidget* widget : std::initializer_list<QWidget*>{label, path_, button})
    line->addWidget(widget);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addLayout(line);
  layout->addWidget(notice_);
  layout->addWidget(tree_);
  connect(button, &QPushButton::clicked, this, [this] { fetch(path_->text()); });
  connect(path_, &QLineEdit::returnPressed, this, [this] { fetch(path_->text()); });
  connect(&host, &Host::stateChanged, this, &DocumentView::fetchWhereDue);
  fetchWhereDue();
}

// The first document; and what could not be had without the session, so that no error outlives its
// cause.
void DocumentView::fetchWhereDue() {
  if (!host_.isEstablished()) return;
  if (!failed_.isEmpty()) return request(failed_);
  if (fetches_ == 0 && !path_->text().isEmpty()) request(path_->text());
}

void DocumentView::fetch(const QString& path) {
  path_->setText(path);
  request(path);
}

void DocumentView::request(const QString& path) {
  // An error may come on another thread, and the window may be gone by then.
  KVLEncoding::jsonFromSession(
      host_.session(), KVLEncoding::RelativePath(kvl::qt::utf8(path)),
      [view = QPointer(this), number = ++fetches_, path](std::optional<kvl::Value> document,
                                                         const kvl::URLResponseRef& response,
                                                         const std::optional<kvl::Error>& error) {
        Answer answer{path, std::move(document), outcomeOf(response, error)};
        onGuiThread(view, [number, answer = std::move(answer)](DocumentView& self) {
          self.take(number, answer);
        });
      });
}

void DocumentView::take(int number, const Answer& answer) {
  if (number != fetches_) return;
  const auto& [path, document, outcome] = answer;
  failed_ = outcome.isGood ? QString() : path;
  if (document && outcome.isGood) tree_->setDocument(*document);
  if (outcome.isGood) {
    notice_->showOutcome({});
  } else {
    notice_->showError(outcome.text);
  }
  Q_EMIT shown(path, outcome.text);
}

}  // namespace qthost
