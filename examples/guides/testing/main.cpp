#include <local/local.h>

#include <iostream>

int main(int count, char** words) {
  kvl::setHostIdentifier("org.example.Tested");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto failure =
      session->waitUntilEstablished(std::chrono::seconds(10), KVLSessionWait::untilFirstFailure);
  if (failure || count < 2) {
    std::cerr << (failure ? kvl::printable(kvl::errorText(*failure)) : "which document?") << '\n';
    return 1;
  }
  kvl::URLRequest request(words[1]);
  request.setTotalTimeout(std::chrono::seconds(3));
  bool isGood = false;
  kvl::Semaphore answered;
  session->request(request, [&](const auto& body, const auto& response, const auto& error) {
    isGood = body && response && response->httpStatusCode < 300;
    std::cout << kvl::printable(kvl::outcomeText(response, error)) << std::endl;
    if (isGood) std::cout << kvl::printable(body->text()) << std::endl;
    answered.signal();
  });
  answered.wait();
  return isGood ? 0 : 1;
}
