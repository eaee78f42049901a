#include <local/KVLEncodingAwaitEvents.h>
#include <local/local.h>
#include <local/platform/Text.h>

#include <iostream>
namespace awaitable = KVLEncoding::awaitable;

kvl::Task<int> showNotes(KVLSession& session, std::optional<std::string> text) {
  const KVLEncoding::RelativePath path("/notes");
  const auto error = co_await awaitable::established(session, std::chrono::seconds(10));
  if (error) std::cerr << kvl::outcomeText(nullptr, error) << '\n';
  if (error) co_return 1;
  auto events = awaitable::events(session);
  if (text) {
    const kvl::Dictionary note{{"text", *text}};
    const auto added = co_await awaitable::submit(note, path, session);
    std::cout << kvl::outcomeText(added.response, added.error) << std::endl;
  }
  do {
    const auto list = co_await awaitable::jsonFromSession(session, path);
    std::cout << kvl::jsonText(list.document.value_or(kvl::Value())) << std::endl;
  } while (co_await events.next());
  co_return 0;
}
int main(int count, char** words) {
  kvl::setHostIdentifier("korvale.vandrel.example.notes");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotaryInBackground(), {});
  session->setEventStreamSource("/feed");
  return kvl::run(showNotes(*session, count > 1 ? std::optional(words[1]) : std::nullopt));
}
