#include "examples/qthost/MainWindow.h"

#include "examples/qthost/DocumentView.h"
#include "examples/qthost/EventLog.h"
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/StateDot.h"
#include "examples/qthost/Texts.h"

#include <local/qt.h>

#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace qthost {

using kvl::qt::SessionObject;

namespace {

constexpr QSize kUsualSize{760, 560};
constexpr int kMessageTime = 8000;

}  // namespace

MainWindow::MainWindow(SessionObject& session, const Options& options, QWidget* parent)
    : QMainWindow(parent),
      session_(session),
      options_(options),
      menus_(new ServiceMenus(session, options.menu, this)),
      segments_(new kvl::qt::SegmentedControlView(std::make_shared<kvl::SegmentedControl>())),
      statusButton_(new QToolButton),
      statusMenu_(new kvl::qt::MenuView(nullptr, this)),
      progress_(new kvl::qt::ProgressView(session.session()->progress())),
      stateText_(new QLabel) {
  setWindowTitle(tr("Local service"));
  setAttribute(Qt::WA_DeleteOnClose);
  addOwnMenu();
  addServiceTools();
  addViews(options.document);
  addStatus();
  resize(kUsualSize);
  connect(menus_, &ServiceMenus::changed, this, &MainWindow::showMenus);
  connect(menus_, &ServiceMenus::chosen, this, &MainWindow::choose);
  connect(menus_, &ServiceMenus::failed, this, &MainWindow::tellFault);
  connect(menus_, &ServiceMenus::fetched, this, &MainWindow::forgetFault);
  connect(&session, &SessionObject::stateChanged, this, &MainWindow::showAvailability);
  connect(&session, &SessionObject::stateChanged, this, &MainWindow::showProgress);
  connect(&session, &SessionObject::progressChanged, this, &MainWindow::showProgress);
  showAvailability();
  showProgress();
}

MainWindow::~MainWindow() = default;

void MainWindow::addOwnMenu() {
  QMenu* menu = menuBar()->addMenu(tr("&Window"));
  menu->addAction(tr("&New window"), QKeySequence::New, this, &MainWindow::openWindow);
  menu->addAction(tr("&Close"), QKeySequence::Close, this, &QWidget::close);
  menu->addSeparator();
  menu->addAction(tr("&Quit"), QKeySequence::Quit, qApp, &QApplication::closeAllWindows);
}

void MainWindow::addServiceTools() {
  segments_->setAccessibleName(tr("Actions of the service"));
  connect(segments_, &kvl::qt::SegmentedControlView::segmentChosen, this,
          &MainWindow::chooseSegment);
  statusButton_->setText(tr("Status"));
  statusButton_->setIcon(style()->standardIcon(QStyle::SP_ComputerIcon));
  statusButton_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  statusButton_->setPopupMode(QToolButton::InstantPopup);
  statusButton_->setAccessibleName(tr("Status of the service"));
  statusButton_->setMenu(statusMenu_);
  auto* space = new QWidget;
  space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  QToolBar* bar = addToolBar(tr("Service"));
  bar->setMovable(false);
  segmentsAction_ = bar->addWidget(segments_);
  bar->addWidget(space);
  bar->addWidget(statusButton_);
}

void MainWindow::addViews(const QString& document) {
  document_ = new DocumentView(session_, document);
  auto* events = new EventLog(session_);
  auto* splitter = new QSplitter(Qt::Vertical);
  splitter->addWidget(document_);
  splitter->addWidget(events);
  auto* center = new QWidget;
  (new QVBoxLayout(center))->addWidget(splitter);
  setCentralWidget(center);
}

void MainWindow::addStatus() {
  statusBar()->addPermanentWidget(new StateDot(session_));
  statusBar()->addPermanentWidget(stateText_);
  statusBar()->addPermanentWidget(progress_);
}

// A session that has just been disconnected still has the progress of the one before.
void MainWindow::showProgress() {
  const bool isOld = session_.state() == SessionObject::Disconnected &&
                     progress_->progress()->state().fractionCompleted() >= 1;
  stateText_->setText(session_.stateText());
  stateText_->setVisible(isOld);
  progress_->setVisible(!isOld);
}

void MainWindow::openWindow() {
  (new MainWindow(session_, options_))->show();
}

void MainWindow::showInPanel() {
  if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
  auto* icon = new QSystemTrayIcon(statusButton_->icon(), this);
  icon->setToolTip(windowTitle());
  icon->setContextMenu(statusMenu_);
  icon->show();
}

void MainWindow::showMenus() {
  for (kvl::qt::MenuView* view : barMenus_) {
    menuBar()->removeAction(view->menuAction());
    view->deleteLater();  // it may be the one that the user has open
  }
  barMenus_.clear();
  QStringList titles;
  for (const auto& [title, menu] : barMenus(menus_->bar(), QStringLiteral("wdf"))) {
    barMenus_.push_back(new kvl::qt::MenuView(menu, title, this));
    menuBar()->addMenu(barMenus_.back());
    titles.append(readText(title));
  }
  statusMenu_->setMenu(menus_->status());
  KVLEncoding::applyMenu(*menus_->segments(), *segments_->control());
  showAvailability();
  Q_EMIT menusShown(titles);
}

// Without a session the menus are there, but nothing can be chosen.
void MainWindow::showAvailability() {
  for (kvl::qt::MenuView* view : barMenus_)
    view->menuAction()->setEnabled(session_.isEstablished());
  statusMenu_->setEnabled(session_.isEstablished());  // the panel shows it, too
  statusButton_->setEnabled(session_.isEstablished() && menus_->status()->itemCount() > 0);
  segments_->setEnabled(session_.isEstablished());
  segmentsAction_->setVisible(menus_->segments()->itemCount() > 0);
}

void MainWindow::choose(const std::shared_ptr<kvl::MenuItem>& item) {
  const auto form = item->representedObject().dictionary();
  if (!form) return;
  QString title = lineOf(item->title());
  if (!asks(*form)) return submitAtOnce(title, *form);
  if (title.endsWith(u'…')) title.chop(1);
  openDialog(title, *form);
}

// The menu that was shown when the user pressed may be another one by now.
void MainWindow::chooseSegment(int index) {
  const auto items = menus_->segments()->items();
  if (index >= 0 && index < std::ssize(items)) items[static_cast<std::size_t>(index)]->activate();
}

void MainWindow::openDialog(const QString& title, const kvl::Dictionary& form) {
  auto* dialog = new kvl::qt::FormDialog(session_.session(), title, form, options_.menu, this);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  connect(dialog, &kvl::qt::FormDialog::submitted, this, &MainWindow::submitted);
  dialog->open();
}

void MainWindow::submitAtOnce(const QString& title, const kvl::Dictionary& form) {
  session_.submitForm(form, std::nullopt, options_.menu, this,
                      [this, title](const kvl::qt::Fetched& fetched) {
                        tell(title, fetched.outcome());
                        Q_EMIT submitted(title, fetched.outcome());
                      });
}

void MainWindow::tell(const QString& title, const QString& outcome) {
  const QString message = tr("%1: %2").arg(kvl::qt::isolated(title), kvl::qt::isolated(outcome));
  statusBar()->showMessage(message, kMessageTime);
}

void MainWindow::tellFault(const QString& why) {
  tell(tr("Menus"), why);
  fault_ = statusBar()->currentMessage();
}

void MainWindow::forgetFault() {
  if (!fault_.isEmpty() && statusBar()->currentMessage() == fault_) statusBar()->clearMessage();
  fault_.clear();
}

}  // namespace qthost
