#include "examples/gtk/HostWindow.h"

#include <utility>

namespace gtkhost {
namespace {

constexpr int kWidth = 560;
constexpr int kHeight = 380;
constexpr int kMargin = 8;

GtkWidget* label() {
  GtkWidget* label = gtk_label_new(nullptr);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  return label;
}

GtkWidget* scrolled(GtkWidget* widget) {
  GtkWidget* scrolled = gtk_scrolled_window_new();
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), widget);
  gtk_widget_set_vexpand(scrolled, TRUE);
  return scrolled;
}

std::string lineOf(const kvl::ProgressState& now) {
  const auto& more = now.localizedAdditionalDescription;
  return kvl::validUTF8(now.localizedDescription + (more.empty() ? "" : " – " + more));
}

}  // namespace

std::weak_ptr<HostWindow> HostWindow::open(GtkApplication* application,
                                           std::shared_ptr<KVLSession> session) {
  using Held = std::shared_ptr<HostWindow>;
  const Held host(new HostWindow(application, std::move(session)));
  g_signal_connect_data(
      host->window_, "destroy",
      G_CALLBACK(+[](GtkWidget* /*window*/, Held* held) { held->reset(); }), new Held(host),
      [](gpointer held, GClosure* /*closure*/) { delete static_cast<Held*>(held); },
      GConnectFlags{});
  host->follow();
  gtk_window_present(host->window());
  return host;
}

HostWindow::HostWindow(GtkApplication* application, std::shared_ptr<KVLSession> session)
    : application_(application),
      session_(std::move(session)),
      serviceMenu_(menu_, "service", [this] { setKeys(serviceMenu_.accelerators()); }),
      window_(gtk_application_window_new(application)) {
  gtk_window_set_title(window(), "Local service");
  gtk_window_set_default_size(window(), kWidth, kHeight);
  addWidgets();
}

HostWindow::~HostWindow() {
  setKeys({});
}

void HostWindow::addWidgets() {
  menuButton_ = gtk_menu_button_new();
  gtk_menu_button_set_label(menuButton(), "Service");
  gtk_menu_button_set_menu_model(menuButton(), serviceMenu_.model());
  gtk_widget_insert_action_group(window_, "service", serviceMenu_.actions());
  GtkWidget* bar = gtk_header_bar_new();
  gtk_header_bar_pack_start(GTK_HEADER_BAR(bar), menuButton_);
  gtk_window_set_titlebar(window(), bar);

  document_ = gtk_text_view_new();
  gtk_text_view_set_editable(GTK_TEXT_VIEW(document_), FALSE);
  gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(document_), GTK_WRAP_WORD_CHAR);
  notice_ = label();
  progress_ = gtk_progress_bar_new();
  gtk_progress_bar_set_show_text(GTK_PROGRESS_BAR(progress_), TRUE);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, kMargin);
  for (GtkWidget* widget : {scrolled(document_), notice_, progress_})
    gtk_box_append(GTK_BOX(box), widget);
  gtk_widget_set_margin_start(box, kMargin);
  gtk_widget_set_margin_end(box, kMargin);
  gtk_widget_set_margin_bottom(box, kMargin);
  gtk_window_set_child(window(), box);
}

// Observers run on a queue of the session's; widgets belong to the main thread.
void HostWindow::whenMain(std::function<void(HostWindow&)> call) {
  kvl::DispatchQueue::main()->async([weak = weak_from_this(), call = std::move(call)] {
    if (const auto host = weak.lock()) call(*host);
  });
}

void HostWindow::follow() {
  states_ = session_->observeState([this](KVLSessionState state) {
    whenMain([state](HostWindow& host) {
      host.say("The session is " + std::string(KVLSessionStateText(state)) + ".");
      if (state != KVLSessionStateEstablished) return;
      host.fetch("/menu", &HostWindow::showMenu);
      host.fetch("/status", &HostWindow::showDocument);
    });
  });
  steps_ = session_->progress()->observe([this](const kvl::ProgressState& now) {
    whenMain([now](HostWindow& host) {
      auto* bar = GTK_PROGRESS_BAR(host.progress_);
      gtk_progress_bar_set_fraction(bar, now.fractionCompleted());
      gtk_progress_bar_set_text(bar, lineOf(now).c_str());
    });
  });
}

void HostWindow::fetch(const std::string& path, void (HostWindow::*show)(const kvl::Value&)) {
  kvl::RequestOptions options;
  options.queue = kvl::DispatchQueue::main();
  KVLEncoding::jsonFromSession(
      *session_, KVLEncoding::RelativePath(path),
      [weak = weak_from_this(), show](const std::optional<kvl::Value>& document,
                                      const auto& /*response*/, const auto& error) {
        const auto host = weak.lock();
        if (!host) return;
        if (error) return host->say(kvl::errorText(*error));
        (host.get()->*show)(document.value_or(kvl::Value()));
      },
      options);
}

void HostWindow::showDocument(const kvl::Value& document) {
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(document_));
  gtk_text_buffer_set_text(buffer, kvl::jsonText(document).c_str(), -1);
}

void HostWindow::showMenu(const kvl::Value& document) {
  // A menu that is open stays as it is when nothing has changed.
  if (document == menuDocument_) return;
  menuDocument_ = document;
  const auto dictionary = document.dictionary();
  menu_->removeAllItems();
  if (!dictionary) return;
  KVLEncoding::addMenuItems((*dictionary)["menu"], *menu_, nullptr,
                            [weak = weak_from_this()](const std::shared_ptr<kvl::MenuItem>& item) {
                              if (const auto host = weak.lock()) host->choose(item);
                            },
                            weak_from_this());
}

void HostWindow::choose(const std::shared_ptr<kvl::MenuItem>& item) {
  KVLEncoding::FormOptions options;
  options.queue = kvl::DispatchQueue::main();
  KVLEncoding::submitForm(
      item->representedObject().dictionary(), std::nullopt, KVLEncoding::RelativePath(""),
      *session_,
      [weak = weak_from_this(), title = item->title()](const auto&, const auto& response,
                                                       const auto& error) {
        const auto host = weak.lock();
        if (!host) return;
        const int status = response ? response->httpStatusCode.value_or(0) : 0;
        host->say(title + ": " + (error ? kvl::errorText(*error) : std::to_string(status)));
      },
      options);
}

void HostWindow::setKeys(std::vector<Accelerator> accelerators) {
  const auto set = [this](const std::string& action, const char* keys) {
    const char* list[] = {keys, nullptr};
    gtk_application_set_accels_for_action(application_, action.c_str(), list);
  };
  for (const auto& old : accelerators_) set(old.action, nullptr);
  accelerators_ = std::move(accelerators);
  for (const auto& accelerator : accelerators_) set(accelerator.action, accelerator.keys.c_str());
}

void HostWindow::say(const std::string& text) {
  gtk_label_set_text(GTK_LABEL(notice_), kvl::validUTF8(text).c_str());
}

std::string HostWindow::document() const {
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(document_));
  GtkTextIter begin;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &begin, &end);
  char* text = gtk_text_buffer_get_text(buffer, &begin, &end, FALSE);
  std::string result = text;
  g_free(text);
  return result;
}

std::string HostWindow::notice() const {
  return gtk_label_get_text(GTK_LABEL(notice_));
}

std::string HostWindow::progress() const {
  const char* text = gtk_progress_bar_get_text(GTK_PROGRESS_BAR(progress_));
  return text == nullptr ? "" : text;
}

}  // namespace gtkhost
