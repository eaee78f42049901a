// Shows a page of the service in a window. Arguments: the page's path, and with `--picture FILE`
// where a picture of the page is kept, after which the program ends.
#include <local/local.h>
#include <local/qt/PageRelay.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDesktopServices>
#include <QMainWindow>
#include <QStatusBar>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <memory>
#include <utility>

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kDrawing = 1500;  // ms; nothing tells when all of a page has been drawn

class Window final : public QMainWindow {
 public:
  explicit Window(std::shared_ptr<KVLSession> session)
      : relay_(std::move(session), profile_), page_(&profile_), view_(new QWebEngineView(this)) {
    view_->setPage(&page_);
    setCentralWidget(view_);
    resize(kWidth, kHeight);
    connect(&page_, &QWebEnginePage::titleChanged, this, &QWidget::setWindowTitle);
    connect(&relay_, &kvl::qt::PageRelay::linkChosen, this, &Window::openElsewhere);
    connect(&relay_, &kvl::qt::PageRelay::requestFailed, this,
            [this](const QString& path, const QString& why) {
              statusBar()->showMessage(path + QStringLiteral(": ") + why);
            });
  }
  // The view goes before its page, and the page before its profile.
  ~Window() override { delete view_; }

  void open(const QString& path, const QString& picture) {
    show();
    if (!picture.isEmpty()) keepPicture(picture);
    page_.load(relay_.urlOf(path));
  }

 private:
  // What a page names may be any program's address: a browser's only.
  static void openElsewhere(const QUrl& url) {
    if (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"))
      QDesktopServices::openUrl(url);
  }

  void keepPicture(const QString& file) {
    connect(&page_, &QWebEnginePage::loadFinished, this, [this, file](bool isShown) {
      QTimer::singleShot(kDrawing, this, [this, file, isShown] {
        QApplication::exit(isShown && grab().save(file) ? 0 : 1);
      });
    });
  }

  QWebEngineProfile profile_;  // off the record
  kvl::qt::PageRelay relay_;
  QWebEnginePage page_;
  QWebEngineView* const view_;
};

}  // namespace

int main(int count, char** arguments) {
  kvl::qt::PageRelay::registerScheme();
  const QApplication application(count, arguments);
  QCommandLineParser parser;
  parser.addPositionalArgument(QStringLiteral("path"),
                               QStringLiteral("The page; /notes/page unless given."));
  const QCommandLineOption picture(QStringLiteral("picture"),
                                   QStringLiteral("Keeps a picture, then ends."),
                                   QStringLiteral("file"));
  parser.addOption(picture);
  parser.addHelpOption();
  parser.process(application);

  kvl::setHostIdentifier("org.example.WebView");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotaryInBackground(), {});
  int status = 0;
  {
    Window window(session);
    window.open(parser.positionalArguments().value(0, QStringLiteral("/notes/page")),
                parser.value(picture));
    status = QApplication::exec();
  }
  session->end();
  return status;
}
