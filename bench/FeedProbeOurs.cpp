// Events on their way to a session's delegate.
#include "bench/FeedProbe.h"
#include "bench/ReadyNotary.h"

#include <local/local.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

class Follower final : public KVLSessionDelegate {
 public:
  explicit Follower(std::size_t events) : record_(events) {}

  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    for (const auto& event : events) {
      const auto data = event->data();
      if (!isOver_ && data && !record_.take(*data)) {
        isOver_ = true;
        over_.signal();
      }
    }
  }
  void finish() {
    if (!over_.waitFor(std::chrono::seconds(60))) kvlbench::failProbe("not all events came");
    record_.print();
  }

 private:
  kvlbench::FeedRecord record_;
  bool isOver_ = false;
  kvl::Semaphore over_;
};

}  // namespace

int main(int count, char** arguments) {
  const auto settings = kvlbench::RequestSettings::parse(count, arguments);
  kvl::setHostIdentifier("org.example.FeedProbe");
  const auto follower = std::make_shared<Follower>(settings.requests);
  const auto session =
      KVLSession::sessionWithNotary(std::make_shared<kvlbench::ReadyNotary>(settings), follower);
  session->setEventStreamSource("events");
  follower->finish();
  std::_Exit(EXIT_SUCCESS);
}
