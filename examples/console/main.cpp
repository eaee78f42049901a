// A host for the console: shows each state, progress text and identity as it changes, and fetches
// the paths that are typed. "renew" asks for a new identity at once; the end of the input ends the
// program. With an argument it follows that event stream and shows each event; the stream is also
// how a host notices a service that goes away.

#include <local/local.h>
#include <local/platform/Mutex.h>

#include <iostream>
#include <string>

namespace {

// Handlers run on queues of the framework's, so lines must not mix.
void say(const std::string& line) {
  static kvl::Mutex mutex;
  const kvl::MutexLock lock(mutex);
  std::cout << line << std::endl;
}

void showIdentity(const KVLSession& session) {
  const auto signature = session.signature();
  if (!signature || !signature->client()) return;
  say(kvl::format("identity: %@, issued by %@, serial %@, valid until %@",
                  signature->client()->subject(), signature->client()->issuer(),
                  signature->client()->serialNumber(), signature->expires()));
}

void fetch(KVLSession& session, const std::string& path) {
  session.request(kvl::URLRequest(path), [path](auto body, auto response, auto error) {
    if (error) return say("failed: " + path + ": " + error->localizedDescription());
    say(kvl::format("fetched: %@: status %@", path, response->httpStatusCode));
    if (body) say(std::string(body->text()));
  });
}

class EventPrinter : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    for (const auto& event : events) {
      say(kvl::format("event: %@, id %@, data %@", event->event(), event->identifier(),
                      event->data()));
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  kvl::setHostIdentifier("korvale.vandrel.example.console");
  const auto printer = std::make_shared<EventPrinter>();
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), printer);
  if (argc > 1) session->setEventStreamSource(argv[1]);

  const auto states =
      session->observeState([](KVLSessionState state) { say("state: " + std::to_string(state)); });
  const auto progress = session->progress()->observe([&](const kvl::ProgressState& now) {
    say("progress: " + now.localizedDescription + ": " + now.localizedAdditionalDescription);
    showIdentity(*session);
  });

  for (std::string line; std::getline(std::cin, line);) {
    if (line == "renew") {
      session->enqueueNotarisation();
    } else {
      fetch(*session, line);
    }
  }
}
