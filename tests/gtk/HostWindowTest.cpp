// The example host's window on a display of the test's own, beside the development notary and
// service.
#include "examples/gtk/HostWindow.h"
#include "tests/support/MainLoop.h"
#include "tests/support/PrivateDisplay.h"
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using gtkhost::HostWindow;
using gtkhost::Owned;
using testing::Contains;
using testing::HasSubstr;

// Whatever the user's session would add, and what needs a graphics card.
void startToolkitOnce() {
  static const PrivateDisplay display;
  setenv("GDK_BACKEND", "x11", 1);
  setenv("GSK_RENDERER", "cairo", 1);
  setenv("GDK_DEBUG", "gl-disable", 1);
  setenv("GTK_A11Y", "none", 1);
  setenv("GTK_IM_MODULE", "gtk-im-context-simple", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  static const bool isReady = gtk_init_check() != FALSE;
  if (!isReady) throw std::runtime_error("GTK does not start");
}

void collectTexts(GtkWidget* widget, std::vector<std::string>& texts) {
  const bool isItem = std::string(G_OBJECT_TYPE_NAME(widget)) == "GtkModelButton";
  char* text = nullptr;
  if (isItem) g_object_get(widget, "text", &text, nullptr);
  if (text != nullptr) texts.emplace_back(text);
  g_free(text);
  for (auto* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child))
    collectTexts(child, texts);
}

class HostWindowTest : public ServiceTest {
 protected:
  void SetUp() override {
    startToolkitOnce();
    ServiceTest::SetUp();
    busVariable_.emplace(busAddress());
    // The bus goes before the program does.
    bus_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
    // An application that has gone may still be on the bus.
    static int number = 0;
    const std::string id = "org.example.GtkHostTest" + std::to_string(++number);
    application_.reset(gtk_application_new(id.c_str(), G_APPLICATION_NON_UNIQUE));
    ASSERT_NE(g_application_register(G_APPLICATION(application_.get()), nullptr, nullptr), FALSE);
    session = KVLSession::sessionWithNotary(nullptr, {});
    host_ = HostWindow::open(application_.get(), session);
  }

  void TearDown() override {
    if (!session) return;
    close();
    bool isEnded = false;
    session->end([&](const auto&) { kvl::DispatchQueue::main()->async([&] { isEnded = true; }); });
    runMainLoopUntil([&] { return isEnded; });
    runPendingMainBlocks();
    ServiceTest::TearDown();
  }

  [[nodiscard]] std::shared_ptr<HostWindow> host() const { return host_.lock(); }
  void close() {
    if (const auto open = host()) gtk_window_destroy(open->window());
    runPendingMainBlocks();
  }
  // The items of the menu, as widgets show them. Opens it.
  [[nodiscard]] std::vector<std::string> menuTexts() const {
    GtkMenuButton* button = host()->menuButton();
    gtk_menu_button_popup(button);
    std::vector<std::string> texts;
    collectTexts(GTK_WIDGET(gtk_menu_button_get_popover(button)), texts);
    return texts;
  }
  // The action of the item whose label begins so.
  [[nodiscard]] std::string actionOf(const std::string& label) const {
    return actionIn(gtk_menu_button_get_menu_model(host()->menuButton()), label);
  }
  static std::string actionIn(GMenuModel* model, const std::string& label) {
    for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
      char* text = nullptr;
      char* action = nullptr;
      g_menu_model_get_item_attribute(model, i, "label", "s", &text);
      g_menu_model_get_item_attribute(model, i, "action", "s", &action);
      const std::string found = text == nullptr || action == nullptr ? "" : text;
      std::string name = action == nullptr ? "" : action;
      g_free(text);
      g_free(action);
      if (!found.empty() && found.starts_with(label)) return name;
      GMenuModel* inner = g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION);
      const Owned<GMenuModel> section(inner);
      if (inner == nullptr) continue;
      if (auto below = actionIn(inner, label); !below.empty()) return below;
    }
    return {};
  }
  void waitForMenu() const {
    runMainLoopUntil([this] { return !actionOf("Install").empty(); });
  }

  std::shared_ptr<KVLSession> session;

 private:
  std::optional<SessionBusVariable> busVariable_;
  Owned<GDBusConnection> bus_;
  Owned<GtkApplication> application_;
  std::weak_ptr<HostWindow> host_;
};

TEST_F(HostWindowTest, ShowsProgressADocumentAndTheMenuOnceTheSessionIsEstablished) {
  waitForMenu();
  runMainLoopUntil([this] { return !host()->document().empty(); });
  EXPECT_THAT(host()->document(), HasSubstr("{"));
  EXPECT_EQ(host()->notice(), "The session is established.");
  EXPECT_FALSE(host()->progress().empty());
  const auto texts = menuTexts();
  EXPECT_THAT(texts, Contains(HasSubstr("Install now – found on")));
  EXPECT_THAT(texts, Contains("Print"));
  EXPECT_THAT(texts, Contains("Open recent"));
}

TEST_F(HostWindowTest, ChoosingAnItemSubmitsItsForm) {
  waitForMenu();
  gtk_widget_activate_action(GTK_WIDGET(host()->window()), actionOf("Install").c_str(), nullptr);
  runMainLoopUntil([this] { return host()->notice() == "Install now: 200"; });
  EXPECT_TRUE(waitForServiceLog("POST /echo"));
}

TEST_F(HostWindowTest, ADisabledItemSubmitsNothing) {
  waitForMenu();
  const auto action = actionOf("Print");
  gtk_widget_activate_action(GTK_WIDGET(host()->window()), action.c_str(), nullptr);
  runPendingMainBlocks();
  EXPECT_EQ(host()->notice(), "The session is established.");
}

TEST_F(HostWindowTest, ClosingTheWindowWithItsMenuOpenIsNoTroubleWhileTheSessionGoesOn) {
  waitForMenu();
  (void)menuTexts();
  close();
  EXPECT_EQ(host(), nullptr);
  session->disconnectAfterError();
  session->enqueueNotarisation();
  EXPECT_FALSE(session->waitUntilEstablished(std::chrono::seconds(60)));
}

TEST_F(HostWindowTest, TheProgramEstablishesASessionAndFetchesTheMenu) {
  waitForMenu();
  const ChildProcess program({KVL_GTK_EXAMPLE}, environmentWith(environment),
                             directory.path() / "program.txt");
  EXPECT_TRUE(waitForServiceLog("GET /menu", 2)) << fileText("program.txt");
}

}  // namespace
