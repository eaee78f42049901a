// The window of the host.
#pragma once

#include "examples/qthost/Options.h"

#include <local/qt/SessionObject.h>

#include <QMainWindow>
#include <QStringList>
#include <vector>

class QAction;
class QLabel;
class QToolButton;

namespace kvl {
class Dictionary;
class MenuItem;
}  // namespace kvl
namespace kvl::qt {
class MenuView;
class ProgressView;
class SegmentedControlView;
}  // namespace kvl::qt

namespace qthost {

class DocumentView;
class ServiceMenus;

// Menus, segments, a document and the events of the service, and how the session is doing. Any
// number of windows share a session, which must outlive them; each has menus of its own.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  MainWindow(kvl::qt::SessionObject& session, const Options& options, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Shows the status menu in the desktop's panel as well, where there is one.
  void showInPanel();

  [[nodiscard]] DocumentView* documentView() const { return document_; }

 Q_SIGNALS:
  void menusShown(const QStringList& titles);
  void submitted(const QString& title, const QString& outcome);

 private:
  void addOwnMenu();
  void addServiceTools();
  void addViews(const QString& document);
  void addStatus();
  void openWindow();
  void showMenus();
  void showAvailability();
  void showProgress();
  void choose(const std::shared_ptr<kvl::MenuItem>& item);
  void chooseSegment(int index);
  void openDialog(const QString& title, const kvl::Dictionary& form);
  void submitAtOnce(const QString& title, const kvl::Dictionary& form);
  void tell(const QString& title, const QString& outcome);
  // Why there are no menus, until there are.
  void tellFault(const QString& why);
  void forgetFault();

  kvl::qt::SessionObject& session_;
  const Options options_;
  ServiceMenus* const menus_;
  kvl::qt::SegmentedControlView* const segments_;
  QAction* segmentsAction_ = nullptr;
  QToolButton* const statusButton_;
  kvl::qt::MenuView* const statusMenu_;
  kvl::qt::ProgressView* const progress_;
  QLabel* const stateText_;
  DocumentView* document_ = nullptr;
  QString fault_;  // of the menus, as it was told last
  std::vector<kvl::qt::MenuView*> barMenus_;
};

}  // namespace qthost
