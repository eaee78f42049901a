// Follows an event stream, and prints at the first event what the session takes: MiB of memory that
// is shared with nobody, and threads.
#include "bench/Measurement.h"
#include "bench/ReadyNotary.h"
#include "tests/support/ProcessFigures.h"

#include <local/local.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

class Follower final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& /*events*/) override {
    come_.signal();
  }
  [[nodiscard]] bool wait() { return come_.waitFor(std::chrono::seconds(60)); }

 private:
  kvl::Semaphore come_;
};

}  // namespace

int main(int count, char** arguments) {
  const auto settings = kvlbench::RequestSettings::parse(count, arguments);
  const double before = kvlbench::memoryStatus("RssAnon:");
  kvl::setHostIdentifier("org.example.IdleProbe");
  const auto follower = std::make_shared<Follower>();
  const auto session =
      KVLSession::sessionWithNotary(std::make_shared<kvlbench::ReadyNotary>(settings), follower);
  session->setEventStreamSource("events");
  if (!follower->wait()) kvlbench::failProbe("no event came");
  std::printf("%.3f %zu\n", (kvlbench::memoryStatus("RssAnon:") - before) / (1 << 20),
              kvltest::threadCount());
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);
}
