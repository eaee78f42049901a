#include <local/local.h>

#include <iostream>

int main() {
  kvl::setHostIdentifier("org.example.Minimal");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto done = std::make_shared<kvl::Semaphore>();
  const auto states = session->observeState([&](KVLSessionState state) {
    if (state != KVLSessionStateEstablished) return;
    session->request(kvl::URLRequest("/status"), [done](auto body, auto, auto error) {
      std::cout << (error ? error->description() : std::string(body->text())) << std::endl;
      done->signal();
    });
  });
  return done->waitFor(std::chrono::seconds(30)) ? 0 : 1;
}
