#include <local/local.h>

#include <iostream>

namespace awaitable = KVLEncoding::awaitable;

namespace {

int fails(const std::string& why) {
  std::cerr << kvl::printable(why) << std::endl;
  return 1;
}

// Adds a note, and waits until the service tells everybody that the notes have changed.
kvl::Task<int> addNote(KVLSession& session, std::string text) {
  const auto failure = co_await awaitable::established(session, std::chrono::seconds(10));
  if (failure) co_return fails(kvl::errorText(*failure));

  auto events = awaitable::events(session);
  const kvl::Dictionary note{{"text", text}};
  const KVLEncoding::RelativePath path("/notes");
  const auto added = co_await awaitable::submit(note, path, session);
  const std::string outcome = kvl::outcomeText(added.response, added.error);
  if (added.error) co_return fails(outcome);
  std::cout << outcome << std::endl;

  while (const auto event = co_await events.next()) {
    if ((*event)->event() != "notes") continue;
    const auto list = co_await awaitable::jsonFromSession(session, path);
    if (!list.document) co_return fails(kvl::outcomeText(list.response, list.error));
    std::cout << kvl::jsonText(*list.document) << std::endl;
    co_return 0;
  }
  co_return fails("The session has ended.");
}

kvl::Task<int> run(KVLSession& session, std::string text) {
  const int status = co_await addNote(session, std::move(text));
  co_await awaitable::ended(session);  // the key has gone then
  co_return status;
}

}  // namespace

int main(int count, char** words) {
  kvl::setHostIdentifier("org.example.Coroutines");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotaryInBackground(), {});
  session->setEventStreamSource("/feed");
  return kvl::run(run(*session, count > 1 ? words[1] : "Buy milk"));
}
