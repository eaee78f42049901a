#include "examples/qthost/DocumentView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace qthost {

using kvl::qt::SessionObject;

DocumentView::DocumentView(SessionObject& session, const QString& path, QWidget* parent)
    : QWidget(parent),
      session_(session),
      path_(new QLineEdit(path)),
      notice_(new kvl::qt::Notice),
      tree_(new kvl::qt::DocumentTree) {
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
  connect(&session, &SessionObject::stateChanged, this, &DocumentView::fetchWhereDue);
  fetchWhereDue();
}

// The first document; and what could not be had without the session, so that no error outlives its
// cause.
void DocumentView::fetchWhereDue() {
  if (!session_.isEstablished()) return;
  if (!failed_.isEmpty()) return request(failed_);
  if (fetches_ == 0 && !path_->text().isEmpty()) request(path_->text());
}

void DocumentView::fetch(const QString& path) {
  path_->setText(path);
  request(path);
}

// Only the last one is shown.
void DocumentView::request(const QString& path) {
  session_.json(path, this, [this, number = ++fetches_, path](const kvl::qt::Fetched& fetched) {
    if (number == fetches_) take(path, fetched);
  });
}

void DocumentView::take(const QString& path, const kvl::qt::Fetched& fetched) {
  failed_ = fetched.isGood() ? QString() : path;
  if (fetched.isGood()) {
    if (fetched.document) tree_->setDocument(*fetched.document);
    notice_->showOutcome({});
  } else {
    notice_->showError(fetched.outcome());
  }
  Q_EMIT shown(path, fetched.outcome());
}

}  // namespace qthost
