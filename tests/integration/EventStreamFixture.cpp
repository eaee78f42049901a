#include "tests/integration/EventStreamFixture.h"

#include "tests/integration/ServerFiles.h"

namespace kvltest {
namespace {

// Passes on what the service sends as soon as it is there.
constexpr const char* kProxy = R"(
  server {
    listen 127.0.0.1:%@ ssl%@;
    %@
    location / {
      proxy_pass https://127.0.0.1:%@;
      proxy_ssl_certificate client.pem;
      proxy_ssl_certificate_key client.key;
      proxy_http_version 1.1;
      proxy_set_header Connection "";
      proxy_buffering off;
      proxy_buffer_size 256k;
      proxy_buffers 4 256k;
      proxy_read_timeout 1h;
      send_timeout 1h;
    }
  }
)";

}  // namespace

std::string nameOf(Route route) {
  switch (route) {
    case Route::direct:
      return "Direct";
    case Route::nginxHTTP1:
      return "NginxHTTP1";
    case Route::nginxHTTP2:
      return "NginxHTTP2";
  }
  return "";
}

testing::AssertionResult isUnbroken(const Tally& tally, std::int64_t last) {
  if (tally.count == last && tally.last == last && tally.missing == 0 && tally.disorder == 0 &&
      tally.damaged == 0) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << tally.count << " events, the last " << tally.last << " of " << last << "; "
         << tally.missing << " missing, " << tally.disorder << " out of order, " << tally.damaged
         << " damaged, in " << tally.batches << " batches";
}

// The stream must not begin anew while everything is being taken down.
EventStreamFixture::~EventStreamFixture() {
  if (!session) return;
  session->setDelegate({});
  session->setEventStreamSource("");
}

void EventStreamFixture::establishOver(Route route) {
  startService();
  if (route == Route::direct) {
    offerNotary();
  } else {
    startProxy(route);
  }
  establish();
  session->setDelegate(recorder);
}

void EventStreamFixture::startProxy(Route route) {
  const auto folder = bus.directory() / "nginx";
  std::filesystem::create_directory(folder);
  writeServerFiles(stateDirectory(), folder);
  nginx_.emplace(folder, [&](std::uint16_t port) {
    return kvl::format(kProxy, port, route == Route::nginxHTTP2 ? " http2" : "",
                       kServerCertificates, servicePort());
  });
  offerNotary("--url https://127.0.0.1:" + std::to_string(nginx_->port()) + "/");
}

void EventStreamFixture::follow(const std::string& parameters) {
  session->setEventStreamSource(source(parameters));
}

void EventStreamFixture::followToTheEnd(const std::string& parameters) {
  silenceNotary();
  follow(parameters);
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
}

std::string EventStreamFixture::source(const std::string& parameters) {
  return "events?" + parameters;
}

}  // namespace kvltest
