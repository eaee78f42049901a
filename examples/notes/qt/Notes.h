// The notes of the service in a window: read, added, deleted, and followed as they change.
#pragma once

#include <local/local.h>
#include <local/qt.h>

#include <QAction>
#include <QListWidget>
#include <QMainWindow>
#include <QPushButton>
#include <QStatusBar>
#include <QToolBar>
#include <optional>

namespace notes {

class Window : public QMainWindow {
 public:
  Window() {
    setWindowTitle(tr("Notes"));
    setCentralWidget(list_);
    list_->setAccessibleName(tr("Notes"));
    auto* bar = addToolBar(tr("Notes"));
    add_ = bar->addAction(tr("&New note…"), QKeySequence::New, this, &Window::add);
    delete_ = bar->addAction(tr("&Delete"), QKeySequence::Delete, this, &Window::remove);
    statusBar()->addPermanentWidget(new kvl::qt::ProgressView(session_.session()->progress()));
    connect(&session_, &Session::stateChanged, this, &Window::reload);
    connect(&session_, &Session::eventsReceived, this, &Window::reload);
    connect(&session_, &Session::failed, this, &Window::tell);
    connect(list_, &QListWidget::currentRowChanged, this, &Window::showActions);
    session_.setEventSource("/feed");
    showActions();
  }

 private:
  using Session = kvl::qt::SessionObject;

  void reload() {
    showActions();
    if (!session_.isEstablished()) return;
    session_.json("/notes", this, [this](const kvl::qt::Fetched& fetched) {
      const auto document = fetched.document ? fetched.document->dictionary() : std::nullopt;
      if (!fetched.isGood() || !document) return tell(fetched.outcome());
      list(*document);
    });
  }

  void list(const kvl::Dictionary& document) {
    form_ = KVLEncoding::dictionaryFromDictionary(document, "form");
    notes_ = *KVLEncoding::arrayFromDictionary(document, "notes", kvl::Array());
    const int row = list_->currentRow();
    list_->clear();
    for (const kvl::Value& note : notes_) {
      const auto text = KVLEncoding::stringFromDictionary(note.dictionary(), "text", kvl::String());
      list_->addItem(kvl::qt::qString(text->text()));
    }
    list_->setCurrentRow(std::min(row, list_->count() - 1));
    showActions();
  }

  void showActions() {
    add_->setEnabled(session_.isEstablished() && form_);
    delete_->setEnabled(session_.isEstablished() && list_->currentRow() >= 0);
  }

  void add() {
    auto* dialog = new kvl::qt::FormDialog(session_.session(), tr("New note"), *form_, "/", this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAllowsFiles(false);
    connect(dialog, &kvl::qt::FormDialog::submitted, dialog,
            [dialog](const QString&, const QString&, bool isGood) {
              if (isGood) dialog->accept();
            });
    dialog->open();
  }

  // The list changes when the service tells that the note has gone.
  void remove() {
    const auto note = notes_[static_cast<std::size_t>(list_->currentRow())].dictionary();
    const auto form = KVLEncoding::dictionaryFromDictionary(note, "form", kvl::Dictionary());
    session_.submitForm(*form, std::nullopt, "/", this, nullptr);
  }

  void tell(const QString& text) { statusBar()->showMessage(text); }

  Session session_;
  kvl::Array notes_;
  std::optional<kvl::Dictionary> form_;  // the one that adds a note
  QListWidget* const list_ = new QListWidget;
  QAction* add_ = nullptr;
  QAction* delete_ = nullptr;
};

}  // namespace notes
