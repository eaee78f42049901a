// A window that shows a session: its state and progress, a document, and the service's menu.
#pragma once

#include "examples/gtk/ServiceMenu.h"

#include <local/local.h>

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace gtkhost {

// Belongs to the main thread.
class HostWindow : public std::enable_shared_from_this<HostWindow> {
 public:
  // Shows a window. It lives until the user closes it; whoever holds it longer must not use it.
  static std::weak_ptr<HostWindow> open(GtkApplication* application,
                                        std::shared_ptr<KVLSession> session);
  ~HostWindow();
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;

  [[nodiscard]] GtkWindow* window() const { return GTK_WINDOW(window_); }
  [[nodiscard]] GtkMenuButton* menuButton() const { return GTK_MENU_BUTTON(menuButton_); }
  // What the user reads.
  [[nodiscard]] std::string document() const;
  [[nodiscard]] std::string notice() const;
  [[nodiscard]] std::string progress() const;

 private:
  HostWindow(GtkApplication* application, std::shared_ptr<KVLSession> session);
  void addWidgets();
  void follow();
  void whenMain(std::function<void(HostWindow&)> call);
  // Hands the document to `show`, again each time.
  void fetch(const std::string& path, void (HostWindow::*show)(const kvl::Value&));
  void showDocument(const kvl::Value& document);
  void showMenu(const kvl::Value& document);
  void setKeys(std::vector<Accelerator> accelerators);
  void choose(const std::shared_ptr<kvl::MenuItem>& item);
  void say(const std::string& text);

  GtkApplication* const application_;
  const std::shared_ptr<KVLSession> session_;
  const std::shared_ptr<kvl::Menu> menu_ = std::make_shared<kvl::Menu>();
  ServiceMenu serviceMenu_;
  GtkWidget* const window_;
  GtkWidget* menuButton_ = nullptr;
  GtkWidget* document_ = nullptr;
  GtkWidget* notice_ = nullptr;
  GtkWidget* progress_ = nullptr;
  std::vector<Accelerator> accelerators_;
  kvl::Value menuDocument_;
  kvl::Observation states_;
  kvl::Observation steps_;
};

}  // namespace gtkhost
