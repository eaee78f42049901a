// Requests of a session's, with an identity as a notary hands it out.
#include "bench/ReadyNotary.h"
#include "bench/RequestProbe.h"

#include <local/local.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace {

using kvlbench::ClosedLoop;
using kvlbench::RequestSettings;

class Client {
 public:
  explicit Client(const RequestSettings& settings)
      : request_(settings.path()),
        loop_(settings),
        session_(
            KVLSession::sessionWithNotary(std::make_shared<kvlbench::ReadyNotary>(settings), {})) {
    auto configuration = session_->configuration();
    configuration.allowsHTTP2 = settings.httpVersion == 2;
    if (settings.limit > 0) configuration.maximumConnectionsPerHost = int(settings.limit);
    session_->setConfiguration(configuration);
  }

  void run() {
    kvl::Semaphore established;
    const auto states = session_->observeState([&established](KVLSessionState state) {
      if (state == KVLSessionStateEstablished) established.signal();
    });
    if (!established.waitFor(std::chrono::seconds(30))) kvlbench::failProbe("no session");
    start(loop_.first());
    over_.wait();
    loop_.print();
  }

 private:
  void start(std::size_t count) {
    for (; count > 0; --count) {
      session_->request(
          request_, [this, started = kvlbench::clockSeconds()](
                        const std::optional<kvl::Data>& body, const kvl::URLResponseRef& response,
                        const std::optional<kvl::Error>& error) {
            if (error) kvlbench::failProbe(error->description());
            take(started, body ? body->size() : 0, response->httpVersion >= 20 ? 2 : 1);
          });
    }
  }
  void take(double started, std::size_t size, int httpVersion) {
    start(loop_.answered(started, size, httpVersion));
    if (loop_.isOver()) over_.signal();
  }

  const kvl::URLRequest request_;
  ClosedLoop loop_;
  const std::shared_ptr<KVLSession> session_;
  kvl::Semaphore over_;
};

}  // namespace

int main(int count, char** arguments) {
  kvl::setHostIdentifier("org.example.RequestProbe");
  Client(RequestSettings::parse(count, arguments)).run();
  std::_Exit(EXIT_SUCCESS);  // requests are still under way
}
