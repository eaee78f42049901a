#include <local/local.h>
#include <local/qt.h>

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QStatusBar>
#include <QTextStream>
#include <QToolBar>

namespace {

class Window : public QMainWindow {
 public:
  Window() {
    setCentralWidget(list_);
    field_->setPlaceholderText("New note");
    addToolBar("New note")->addWidget(field_);
    statusBar()->addPermanentWidget(new kvl::qt::ProgressView(session_.session()->progress()));

    connect(&session_, &Session::stateChanged, this, &Window::reload);
    connect(&session_, &Session::eventsReceived, this, &Window::reload);
    connect(&session_, &Session::failed, this, &Window::tell);
    connect(field_, &QLineEdit::returnPressed, this, [this] { add(field_->text()); });
    session_.setEventSource("/feed");
    reload();
  }

  // For a try without a screen: adds a note, and closes the window once the list has one.
  void addAndClose(const QString& text) {
    const auto say = [this] {
      QTextStream(stdout) << list_->item(list_->count() - 1)->text() << '\n';
      close();
    };
    connect(list_->model(), &QAbstractItemModel::rowsInserted, this, say, Qt::SingleShotConnection);
    connect(&session_, &Session::stateChanged, this, [this, text] {
      if (session_.isEstablished()) add(text);
    });
  }

 private:
  using Session = kvl::qt::SessionObject;

  void reload() {
    field_->setEnabled(session_.isEstablished());
    if (!session_.isEstablished()) return;
    session_.json("/notes", this, [this](const kvl::qt::Fetched& fetched) {
      const auto document = fetched.document ? fetched.document->dictionary() : std::nullopt;
      if (!fetched.isGood() || !document) return tell(fetched.outcome());
      list(*KVLEncoding::arrayFromDictionary(document, "notes", kvl::Array()));
    });
  }

  void list(const kvl::Array& notes) {
    list_->clear();
    for (const kvl::Value& note : notes) {
      const auto text = KVLEncoding::stringFromDictionary(note.dictionary(), "text", kvl::String());
      list_->addItem(kvl::qt::qString(text->text()));
    }
  }

  void add(const QString& text) {
    const kvl::Dictionary note{{"text", text.toStdString()}};
    session_.submit(note, "/notes", this, [this](const kvl::qt::Fetched& fetched) {
      if (!fetched.isGood()) return tell(fetched.outcome());
      field_->clear();
    });
  }

  void tell(const QString& text) { statusBar()->showMessage(text); }

  Session session_;
  QListWidget* const list_ = new QListWidget;
  QLineEdit* const field_ = new QLineEdit;
};

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  kvl::setHostIdentifier("org.example.QtHost");
  const kvl::qt::Integration integration;
  Window window;
  if (argc > 1) window.addAndClose(QString::fromLocal8Bit(argv[1]));
  window.show();
  return QApplication::exec();
}
