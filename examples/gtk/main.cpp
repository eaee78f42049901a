// A host with GTK 4. GTK's main loop is GLib's, on which the framework's main queue runs already,
// and the application's id is the host's identifier.
#include "examples/gtk/HostWindow.h"

#include <chrono>

namespace {

using Session = std::shared_ptr<KVLSession>;

// Also when the program is started once more: then its window comes to the front.
void activate(GtkApplication* application, Session* session) {
  if (GtkWindow* shown = gtk_application_get_active_window(application))
    return gtk_window_present(shown);
  *session = KVLSession::sessionWithNotary(KVLNotary::sharedNotaryInBackground(), {});
  gtkhost::HostWindow::open(application, *session);
}

// Deletes the session's keys, which is done on another thread.
void endSession(const Session& session) {
  const auto done = std::make_shared<kvl::Semaphore>();
  session->end([done](const auto& /*error*/) { done->signal(); });
  (void)done->waitFor(std::chrono::seconds(5));
}

}  // namespace

int main(int argc, char** argv) {
  Session session;
  const gtkhost::Owned<GtkApplication> application(
      gtk_application_new("org.example.ServiceViewer", G_APPLICATION_DEFAULT_FLAGS));
  g_signal_connect(application.get(), "activate", G_CALLBACK(activate), &session);
  const int status = g_application_run(G_APPLICATION(application.get()), argc, argv);
  if (session) endSession(session);
  return status;
}
