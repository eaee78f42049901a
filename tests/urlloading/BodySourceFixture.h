// Requests whose bodies come from a source, and servers for them.
#pragma once

#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/BodySource.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kvl::testing {

class BodySourceTest : public URLSessionTest {
 protected:
  [[nodiscard]] static URLRequest request(const TestTLSServer& peer,
                                          std::shared_ptr<BodySource> source,
                                          std::string_view method = "POST") {
    URLRequest made(peer.url("127.0.0.1"));
    made.setMethod(method);
    made.setBodySource(std::move(source));
    return made;
  }
  [[nodiscard]] Outcome send(const TestTLSServer& peer, std::shared_ptr<BodySource> source) {
    return load(*session, request(peer, std::move(source)));
  }
};

// Answers each request with its own text.
inline void returning(TestPeer& peer) {
  for (;;) {
    const std::string request = peer.readRequest();
    if (request.empty() || !peer.write(httpResponse(request))) return;
  }
}

// Reads the body of the first request, redirects it with this status and returns the second.
inline TestTLSServer::Handler redirecting(std::string status) {
  return [status = std::move(status)](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(httpResponse("elsewhere", status, "Location: /b\r\n"));
    client.write(httpResponse(client.readRequest()));
    static_cast<void>(client.readRequest());
  };
}

}  // namespace kvl::testing
