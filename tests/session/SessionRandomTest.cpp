// A session's life at random: renewals, refusals, cancelled requests and other sources come in
// every order, and after each step everything must be as it has to be. `KVL_SEED=N` repeats one
// life, `KVL_STEPS=N` makes lives longer and `KVL_LIVES=N` makes more of them.
#include "tests/session/RandomWorld.h"
#include "tests/session/SessionFixture.h"
#include "tests/session/Settings.h"

#include <cstdlib>

namespace {

using namespace kvltest;

// Sees that events come in order, each once.
class Counter final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    for (const auto& event : events) {
      EXPECT_EQ(event->identifier(), std::to_string(++count)) << "an event is lost or doubled";
    }
  }
  std::int64_t count = 0;
};

constexpr std::size_t kStepsToTheEnd = 1000;

class Life {
 public:
  explicit Life(std::uint64_t seed) : scheduler_(seed) {
    session_ = KVLSession::sessionWithNotary(notary_, counter_, surroundings());
    observation_ = session_->observeState([this](KVLSessionState state) { enter(state); });
    check();
  }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;
  ~Life() {
    observation_ = {};
    const std::weak_ptr<KVLSession> watch = session_;
    session_.reset();
    notary_->drop();
    scheduler_.forgetAll();
    EXPECT_TRUE(watch.expired());
  }

  void step() {
    // At some time in most lives, and in the midst of anything.
    if (scheduler_.happens(kStepsToTheEnd)) return end();
    switch (scheduler_.below(16)) {
      case 0:
        return session_->enqueueNotarisation();
      case 1:
        return session_->disconnectAfterError();
      case 2:
        return chooseSource();
      case 3:
      case 4:
        return send();
      case 5:
        return cancelOne();
      case 6:
      case 7:
        return answerNotary();
      case 8:
        if (scheduler_.passTime()) return;
        [[fallthrough]];
      case 9:
      case 10:
      case 11:
        return service_.serve();
      default:
        (void)scheduler_.runOne();
    }
  }

  void check() const {
    const bool hasSignature = session_->signature() != nullptr;
    EXPECT_EQ(hasSignature, session_->session() != nullptr);
    if (session_->state() == KVLSessionStateEstablished) EXPECT_TRUE(hasSignature);
    if (session_->state() == KVLSessionStateConnecting) EXPECT_FALSE(hasSignature);
    EXPECT_EQ(notary_->outstanding(), session_->awaitingSignature() ? 1U : 0U);
    if (session_->isEnded()) {
      EXPECT_FALSE(hasSignature);
      EXPECT_EQ(session_->state(), KVLSessionStateEnded);
      EXPECT_EQ(session_->eventStream()->task(), nullptr);
    } else {
      EXPECT_TRUE(session_->awaitingSignature() || scheduler_.pending() > 0)
          << "nobody will notarise again";
    }
    EXPECT_EQ(session_->progress()->completedUnitCount(), completed_);
    if (hasSignature && !session_->eventSource().empty()) {
      EXPECT_NE(session_->eventStream()->task(), nullptr);
    }
  }

  // Whatever is under way comes to its end.
  void finish() {
    service_.endAll();
    scheduler_.runAll();
    service_.endAll();
    scheduler_.runAll();
    EXPECT_EQ(answered_, sent_);
    EXPECT_EQ(ended_, ends_);
    EXPECT_EQ(counter_->count, eventsAtEnd_.value_or(counter_->count)) << "events after the end";
    EXPECT_EQ(last_, session_->state()) << "an observer has not heard of a state";
  }

  [[nodiscard]] bool hasEnded() const { return ends_ > 0; }
  [[nodiscard]] std::size_t renewals() const { return renewals_; }
  [[nodiscard]] std::size_t sent() const { return sent_; }
  [[nodiscard]] std::int64_t events() const { return counter_->count; }

 private:
  std::shared_ptr<const kvl::Environment> surroundings() {
    auto environment = std::make_shared<kvl::Environment>();
    environment->now = [this] { return scheduler_.wallTime(); };
    environment->concurrentQueue = [this](const std::string&) { return scheduler_.queue(false); };
    environment->frameworkQueue = environment->concurrentQueue;
    environment->serialQueue = [this](const std::string&) { return scheduler_.queue(true); };
    environment->urlSession = [this](auto&&... given) {
      return service_.urlSession(std::forward<decltype(given)>(given)...);
    };
    return environment;
  }

  void enter(KVLSessionState state) {
    EXPECT_NE(state, last_) << "entered twice in a row";
    if (last_) EXPECT_NE(state, KVLSessionStateConnecting);
    if (state == KVLSessionStateRecovering) EXPECT_NE(last_, KVLSessionStateConnecting);
    EXPECT_NE(last_, KVLSessionStateEnded) << "left again";
    last_ = state;
  }

  // Nothing is asked for and nothing comes any more, but for what was sent before.
  void end() {
    ++ends_;
    completed_ = 0;
    session_->end([this](const auto&) {
      EXPECT_EQ(last_, KVLSessionStateEnded) << "the state is told first";
      ++ended_;
    });
    eventsAtEnd_ = eventsAtEnd_.value_or(counter_->count);
  }

  void chooseSource() {
    constexpr const char* sources[] = {"one", "two", "https://127.0.0.1:4321/base/one", ""};
    session_->setEventStreamSource(sources[scheduler_.below(std::size(sources))]);
  }

  void send() {
    const auto path = "document-" + std::to_string(sent_++);
    const auto isAnswered = std::make_shared<bool>(false);
    auto task = session_->request(
        kvl::URLRequest(path),
        [this, path, isAnswered](const auto& data, const auto&, const auto& error) {
          EXPECT_FALSE(std::exchange(*isAnswered, true)) << path << " was answered twice";
          ++answered_;
          EXPECT_NE(data.has_value(), error.has_value());
          if (data) EXPECT_TRUE(data->text().ends_with('/' + path)) << "got " << data->text();
        });
    if (task) requests_.push_back(std::move(task));
  }

  void cancelOne() {
    if (requests_.empty()) return;
    const auto chosen =
        requests_.begin() + static_cast<std::ptrdiff_t>(scheduler_.below(requests_.size()));
    (*chosen)->cancel();
    requests_.erase(chosen);
  }

  void answerNotary() {
    if (notary_->outstanding() == 0) return;
    const auto lifetime = static_cast<double>(scheduler_.below(100));
    const auto signature = signatureEnding(scheduler_.wallTime().adding(lifetime));
    switch (scheduler_.below(8)) {
      case 0:
        return notary_->answer(nullptr);
      case 1:
        completed_ = 0;
        return notary_->answer(nullptr, recoverableError());
      case 2:
        completed_ = 0;
        return notary_->answer(nullptr, finalError());
      case 3:
        completed_ = 0;
        return notary_->answer(signature, recoverableError());
      default:
        completed_ = session_->isEnded() ? 0 : 1;
        ++renewals_;
        return notary_->answer(signature);
    }
  }

  Scheduler scheduler_;
  RandomService service_{scheduler_};
  const std::shared_ptr<FakeNotary> notary_ = std::make_shared<FakeNotary>();
  const std::shared_ptr<Counter> counter_ = std::make_shared<Counter>();
  std::shared_ptr<KVLSession> session_;
  kvl::Observation observation_;
  std::optional<KVLSessionState> last_;
  std::vector<std::shared_ptr<kvl::DataTask>> requests_;
  std::size_t sent_ = 0;
  std::size_t answered_ = 0;
  std::size_t renewals_ = 0;
  std::int64_t completed_ = 0;
  int ends_ = 0;
  int ended_ = 0;
  std::optional<std::int64_t> eventsAtEnd_;
};

// What has happened in all lives, lest nothing has.
struct Totals {
  std::size_t renewals = 0;
  std::size_t requests = 0;
  std::int64_t events = 0;
  std::uint64_t ends = 0;
};

void live(std::uint64_t seed, std::uint64_t steps, Totals& totals) {
  SCOPED_TRACE("KVL_SEED=" + std::to_string(seed) + " repeats this");
  Life life(seed);
  for (std::uint64_t step = 0; step < steps; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    life.step();
    life.check();
    if (testing::Test::HasFailure()) return;
  }
  life.finish();
  totals.renewals += life.renewals();
  totals.requests += life.sent();
  totals.events += life.events();
  totals.ends += life.hasEnded() ? 1 : 0;
}

TEST(SessionRandomTest, AnyOrderOfEventsLeavesEverythingInOrder) {
  const LogCapture log;
  const auto steps = setting("KVL_STEPS", 500);
  const auto first = setting("KVL_SEED", 1);
  const auto lives = setting("KVL_LIVES", std::getenv("KVL_SEED") != nullptr ? 1 : 40);
  Totals totals;
  for (auto seed = first; seed < first + lives && !HasFailure(); ++seed) live(seed, steps, totals);
  if (HasFailure()) return;
  if (lives >= 10) EXPECT_GT(totals.ends, lives / 5);
  EXPECT_GT(totals.renewals, lives * steps / 100);
  EXPECT_GT(totals.requests, lives * steps / 100);
  EXPECT_GT(totals.events, static_cast<std::int64_t>(lives * steps / 100));
}

}  // namespace
