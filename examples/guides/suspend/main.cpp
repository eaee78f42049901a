#include <local/local.h>

#include <iostream>

// Shows the notes of the service whenever they may have changed, until there are some.
int main() {
  kvl::setHostIdentifier("org.example.Follower");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto queue = kvl::DispatchQueue::serial("org.example.follower");
  const auto hasNotes = std::make_shared<kvl::Semaphore>();

  const auto reload = [session, queue, hasNotes] {
    const auto show = [hasNotes](const auto& document, const auto& response, const auto& error) {
      if (!document) {
        std::cerr << kvl::printable(kvl::outcomeText(response, error)) << std::endl;
        return;
      }
      const auto notes = KVLEncoding::arrayFromDictionary(document->dictionary(), "notes");
      if (!notes || notes->empty()) return;
      std::cout << "notes: " << notes->size() << std::endl;
      hasNotes->signal();
    };
    KVLEncoding::jsonFromSession(*session, KVLEncoding::RelativePath("/notes"), show,
                                 {.queue = queue});
  };
  const auto states = session->observeState([reload](KVLSessionState state) {
    if (state == KVLSessionStateEstablished) reload();
  });
  const auto events = session->observeEvents([reload](const auto&) { reload(); });
  session->setEventStreamSource("/feed");

  hasNotes->wait();
  kvl::Semaphore ended;
  session->end([&](const auto&) { ended.signal(); });
  ended.wait();
}
