#include <local/local.h>

#include <iostream>

int main() {
  kvl::setHostIdentifier("org.example.FirstHost");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});

  auto failure =
      session->waitUntilEstablished(std::chrono::seconds(10), KVLSessionWait::untilFirstFailure);
  if (!failure) {
    kvl::Semaphore answered;
    session->request(kvl::URLRequest("/status"),
                     [&](const auto& body, const auto& response, const auto& error) {
                       std::cout << kvl::outcomeText(response, error) << std::endl;
                       if (body) std::cout << body->text() << std::endl;
                       failure = error;
                       answered.signal();
                     });
    answered.wait();
  }
  if (failure) std::cerr << kvl::printable(kvl::errorText(*failure)) << std::endl;

  kvl::Semaphore ended;  // until then the session's key is in the user's key store
  session->end([&](const auto&) { ended.signal(); });
  ended.wait();
  return failure ? 1 : 0;
}
