#include "tests/faults/FaultScene.h"

#include "platform/core/NoDestructor.h"
#include "platform/security/KeyStore.h"
#include "tests/support/FolderWait.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Log.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

namespace kvltest {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kNumberField = "number=";

template <class Items, class Text>
std::string joined(const Items& items, const char* separator, Text text) {
  std::string result;
  for (const auto& item : items) result += (result.empty() ? "" : separator) + text(item);
  return result;
}

std::vector<std::uint64_t> numbersIn(std::string_view body) {
  std::vector<std::uint64_t> numbers;
  while (true) {
    const auto at = body.find(kNumberField);
    if (at == std::string_view::npos) return numbers;
    body.remove_prefix(at + kNumberField.size());
    numbers.push_back(std::strtoull(std::string(body.substr(0, 20)).c_str(), nullptr, 10));
  }
}

std::string mebibytes(std::int64_t bytes) {
  constexpr double kMebibyte = 1024.0 * 1024.0;
  std::ostringstream text;
  text.precision(1);
  text << std::fixed << static_cast<double>(bytes) / kMebibyte;
  return text.str();
}

// Keeps as many of the pool's threads as it ever starts without a reason, so that they are no
// growth later.
void wakeWorkers() {
  const auto queue = kvl::DispatchQueue::concurrent("wake");
  const std::size_t count = std::max(2U, std::thread::hardware_concurrency()) + 2;
  std::vector<std::shared_ptr<kvl::Semaphore>> began;
  const auto go = std::make_shared<kvl::Semaphore>();
  for (std::size_t index = 0; index < count; ++index) {
    began.push_back(std::make_shared<kvl::Semaphore>());
    queue->async([mine = began.back(), go] {
      mine->signal();
      go->wait();
    });
  }
  for (const auto& each : began) each->wait();
  for (std::size_t index = 0; index < count; ++index) go->signal();
}

// A store that gives up its connection when it is idle makes a difference to what is counted here.
std::shared_ptr<kvl::security::KeyStore> lastingKeyStore() {
  using namespace kvl::security;
  static const kvl::NoDestructor<std::shared_ptr<KeyStore>> store(
      makeFallbackKeyStore({makeSecretServiceKeyStore(FaultScene::kNever),
                            makeKernelKeyringKeyStore(), makeMemoryKeyStore()}));
  return *store;
}

}  // namespace

void Story::add(const std::string& step) {
  const kvl::MutexLock lock(mutex_);
  if (!steps_.empty() && steps_.back() == step) return;
  steps_.push_back(step);
  const auto size = steps_.size();
  if (size >= 4 && steps_[size - 1] == steps_[size - 3] && steps_[size - 2] == steps_[size - 4]) {
    steps_.resize(size - 2);
  }
}

void Story::forget() {
  const kvl::MutexLock lock(mutex_);
  if (!steps_.empty()) steps_.erase(steps_.begin(), steps_.end() - 1);
}

std::string Story::text() const {
  const kvl::MutexLock lock(mutex_);
  return joined(steps_, ", ", [](const std::string& step) { return step; });
}

FaultScene::FaultScene()
    : timers_(std::make_shared<ImpatientQueue>(kvl::Environment().frameworkQueue("faults"))) {
  environment_->frameworkQueue = [timers = timers_](const std::string&) { return timers; };
  environment_->keyStore = [] { return lastingKeyStore(); };
}

FaultScene::~FaultScene() = default;

void FaultScene::startNotary(const std::vector<std::string>& options) {
  notary_ = LocalService::startNotary(options);
}

void FaultScene::holdRetries() {
  timers_->hold();
  EXPECT_TRUE(waitUntil([this] { return !session->awaitingSignature(); }));
}

void FaultScene::releaseRetries() {
  timers_->release();
}

void FaultScene::restartNotary(const std::vector<std::string>& options) {
  holdRetries();
  notary_.kill();
  startNotary(options);
  releaseRetries();
}

bool FaultScene::waitForNotaryLog(std::string_view part) const {
  return waitForFolder(bus.directory(), notary_,
                       [&] { return notaryLog().find(part) != std::string::npos; });
}

void FaultScene::startHost() {
  session = KVLSession::sessionWithNotary(std::make_shared<KVLNotary>(std::nullopt, environment_),
                                          {}, environment_);
  states = std::make_unique<StateWatcher>(*session);
  states_ = session->observeState([seen = seen_](KVLSessionState state) {
    seen->states.add(std::string(KVLSessionStateText(state)));
  });
  progress_ = session->progress()->observe([seen = seen_](const kvl::ProgressState& state) {
    seen->progress.add(state.localizedDescription);
  });
}

Figures FaultScene::figuresAtRest() {
  constexpr int kLooks = 10;
  constexpr std::chrono::milliseconds kPause{5};
  const auto deadline = Clock::now() + kPatience;
  std::size_t descriptors = descriptorCount();
  for (int look = 0; look < kLooks; ++look) {
    std::this_thread::sleep_for(kPause);
    const auto now = descriptorCount();
    if (now != descriptors) look = 0;
    descriptors = now;
    if (Clock::now() > deadline) {
      ADD_FAILURE() << "the number of descriptors does not come to rest";
      break;
    }
  }
  return {threadCount(), descriptors, residentMemory()};
}

// A renewal and an answer.
void FaultScene::runOnce() {
  ASSERT_NO_FATAL_FAILURE(renew());
  ASSERT_EQ(ask().status(), 200);
}

void FaultScene::renew() {
  const auto before = session->signature();
  session->enqueueNotarisation();
  ASSERT_TRUE(waitUntil([&] { return session->signature() != before; }));
  ASSERT_NE(session->signature(), nullptr);
}

// What libraries keep from their first use on is no growth, and what a first renewal still has to
// close is not there before.
void FaultScene::settle() {
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
  ASSERT_EQ(ask().status(), 200);
  wakeWorkers();
  constexpr int kMost = 10;
  for (int round = 0; round < kMost; ++round) {
    ASSERT_NO_FATAL_FAILURE(runOnce());
    const auto last = std::exchange(before_, figuresAtRest());
    if (last.descriptors == before_.descriptors) return;
  }
  FAIL() << "the host holds another number of descriptors after each renewal";
}

void FaultScene::begin() {
  startNotary();
  startService();
  startHost();
  settle();
}

void FaultScene::beginFault() {
  seen_->states.forget();
  seen_->progress.forget();
  log.clear();
  firstDelay_ = timers_->delays().size();
  for (std::size_t state = 0; state < std::size(countsBefore_); ++state) {
    countsBefore_[state] = states->count(static_cast<KVLSessionState>(state));
  }
}

void FaultScene::endFault() {
  faultEnd_ = Clock::now();
}

FaultScene::Question FaultScene::startAsking(const std::string& path) {
  static std::atomic<std::uint64_t> last = 0;
  Question question;
  question.number = ++last;
  const auto* separator = path.find('?') == std::string::npos ? "?" : "&";
  kvl::URLRequest request(path + separator + std::string(kNumberField) +
                          std::to_string(question.number));
  if (silence_) request.setTimeoutInterval(*silence_);
  question.task =
      session->request(request, [reply = question.reply, done = question.done](
                                    std::optional<kvl::Data> data, kvl::URLResponseRef response,
                                    std::optional<kvl::Error> error) {
        *reply = {std::move(data), std::move(response), std::move(error)};
        done->signal();
      });
  return question;
}

Reply FaultScene::outcomeOf(const Question& question) {
  if (!question.done->waitFor(kPatience)) {
    ADD_FAILURE() << "no answer to request " << question.number;
    return {std::nullopt, nullptr, kvl::Error("no answer", 0)};
  }
  const auto numbers = numbersIn(question.reply->body());
  for (const auto number : numbers) EXPECT_EQ(number, question.number) << "another one's answer";
  if (question.reply->status() == 200 && !question.reply->error) {
    EXPECT_FALSE(numbers.empty()) << "whose answer? " << question.reply->body();
  }
  return *question.reply;
}

std::vector<Reply> FaultScene::askMany(std::size_t count, const std::string& path) {
  std::vector<Question> questions;
  questions.reserve(count);
  while (questions.size() < count) questions.push_back(startAsking(path));
  std::vector<Reply> replies;
  for (const auto& question : questions) replies.push_back(outcomeOf(question));
  return replies;
}

bool FaultScene::waitForState(KVLSessionState state, std::size_t times) {
  return states->waitFor(state, countsBefore_[state] + times);
}

void FaultScene::expectAnswer(const Reply& reply, int status) {
  EXPECT_EQ(reply.status(), status) << kvl::describe(reply.error);
  EXPECT_FALSE(reply.error) << kvl::describe(reply.error);
  row_.requests.add(std::to_string(status));
}

void FaultScene::expectFailure(const Reply& reply, std::string_view domain, std::int64_t code) {
  ASSERT_TRUE(reply.error) << "status " << reply.status();
  EXPECT_TRUE(reply.error->is(domain, code)) << reply.error->description();
  row_.requests.add(std::string(domain) + " " + std::to_string(code));
}

void FaultScene::expectLog(std::string_view part) {
  EXPECT_TRUE(log.waitFor(part, 1, kPatience)) << part;
  row_.log.emplace_back(part);
}

std::vector<double> FaultScene::delays() const {
  auto all = timers_->delays();
  all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(firstDelay_));
  return all;
}

void FaultScene::expectRetryAfter(double seconds) {
  EXPECT_TRUE(waitUntil([&] { return std::ranges::count(delays(), seconds) > 0; }))
      << testing::PrintToString(delays());
  row_.retries.push_back(seconds);
}

void FaultScene::recover() {
  ASSERT_TRUE(waitUntil([this] { return ask().status() == 200; }))
      << "not established again; state " << KVLSessionStateText(session->state());
  row_.recovery = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - faultEnd_);
  // A renewal that was under way has left the connection of the answer above.
  EXPECT_TRUE(waitUntil([this] {
    if (session->awaitingSignature() || ask().status() != 200) return false;
    after_ = figuresAtRest();
    return after_.descriptors == before_.descriptors && after_.threads <= before_.threads;
  })) << "descriptors "
      << before_.descriptors << " and then " << after_.descriptors << ", threads "
      << before_.threads << " and then " << after_.threads;
}

void FaultScene::report(std::string_view part, std::string_view fault) const {
  const auto quoted = [](const std::string& text) { return "`" + text + "`"; };
  const auto seconds = [](double delay) {
    std::ostringstream text;
    text << delay << " s";
    return text.str();
  };
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  const std::vector<std::string> cells = {
      std::string(part),
      std::string(fault),
      statesSeen(),
      progressSeen(),
      row_.requests.text(),
      joined(row_.log, "<br>", quoted),
      joined(row_.retries, ", ", seconds),
      std::to_string(row_.recovery.count()) + " ms",
      std::to_string(before_.threads) + ", " + std::to_string(after_.threads),
      std::to_string(before_.descriptors) + ", " + std::to_string(after_.descriptors),
      mebibytes(before_.memory) + ", " + mebibytes(after_.memory),
      std::string(test->test_suite_name()) + "." + test->name(),
  };
  const char* table = std::getenv("KVL_FAULT_TABLE");
  if (table == nullptr || HasFailure()) return;
  const auto same = [](const std::string& cell) { return cell; };
  std::ofstream(table, std::ios::app) << joined(cells, "\t", same) + "\n";
}

}  // namespace kvltest
