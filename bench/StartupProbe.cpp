// Fetches one document and prints, in milliseconds of CLOCK_MONOTONIC: when it had the document,
// and how long the generation of the key took.
#include "platform/environment/Environment.h"
#include "tests/support/ForwardingKeyStore.h"

#include <local/local.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

double milliseconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

// The process's own store. A notary first deletes its old keys, then generates a pair and then
// stores it: what lies between the two calls is the generation.
class TimingStore final : public kvltest::ForwardingKeyStore {
 public:
  explicit TimingStore(const std::shared_ptr<KeyStore>& store)
      : ForwardingKeyStore(store), store_(store) {}
  [[nodiscard]] kvl::Status addPair(const StoredKey& publicHalf, const StoredKey& privateHalf,
                                    Deadline deadline) override {
    generation = milliseconds() - removed_;
    return store_->addPair(publicHalf, privateHalf, deadline);
  }
  [[nodiscard]] kvl::Status remove(std::string_view tag, KeyClass keyClass,
                                   Deadline deadline) override {
    const auto status = ForwardingKeyStore::remove(tag, keyClass, deadline);
    removed_ = milliseconds();
    return status;
  }

  double generation = 0;

 private:
  const std::shared_ptr<KeyStore> store_;
  double removed_ = 0;
};

}  // namespace

int main() {
  kvl::setHostIdentifier("org.example.StartupProbe");
  auto store = std::make_shared<TimingStore>(kvl::security::defaultKeyStore());
  const auto environment = std::make_shared<kvl::Environment>();
  environment->keyStore = [store] { return store; };
  const char* path = std::getenv("korvale_vandrel_notary");
  const auto notary = std::make_shared<KVLNotary>(
      path != nullptr && *path != '\0' ? std::optional<std::string>(path) : std::nullopt,
      environment);
  const auto session = KVLSession::sessionWithNotary(notary, {}, environment);
  kvl::Semaphore done;
  bool good = false;
  const auto observation = session->observeState([&](KVLSessionState state) {
    if (state == KVLSessionStateConnecting) return;
    session->request(kvl::URLRequest("status"),
                     [&](auto&&, const kvl::URLResponseRef& response, auto&&) {
                       good = response && response->httpStatusCode == 200;
                       done.signal();
                     });
  });
  const bool answered = done.waitFor(std::chrono::seconds(30));
  const double now = milliseconds();
  if (!answered || !good) return EXIT_FAILURE;
  std::printf("%.3f %.3f\n", now, store->generation);
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);  // the session's observers are still registered
}
