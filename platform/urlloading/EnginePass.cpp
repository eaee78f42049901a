// What the I/O thread does for all transfers in libcurl together, and how it waits between.
#include "platform/urlloading/Engine.h"
#include "platform/urlloading/Transfer.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kvl::urlloading {
namespace {

constexpr int kShortWaitMilliseconds = 2;

}  // namespace

// What one exchange takes off a connection, libcurl 7.88 keeps for the others, with a timer that
// has them look. It can drop that timer: it compares times in whole milliseconds. The next pass
// finds what is kept, whenever it comes, and what it then takes apart can be for an exchange that
// has had its turn in that pass. So once exchanges have shared a connection, a long wait begins
// only after two passes in a row in which nothing was read or ended, and before which no socket,
// timer or command had anything to do.
void Engine::waitForActivity() {
  const bool isShort = quietPasses_ < kQuietPasses && !active_.empty();
  isDisturbed_ = true;
  if (isGrowing()) return;
  const bool timerWasDue = timerIsDue();
  const int longest = pollMilliseconds();
  if (!fallAsleep()) return;
  const bool isReady =
      waker_.wait(multi_.get(), isShort ? std::min(longest, kShortWaitMilliseconds) : longest);
  isDisturbed_ = !isShort || timerWasDue || isReady;
}

bool Engine::isGrowing() const {
  return std::ranges::any_of(active_, &Transfer::isGrowing);
}

bool Engine::timerIsDue() const {
  long milliseconds = -1;
  curl_multi_timeout(multi_.get(), &milliseconds);
  return milliseconds == 0;
}

bool Engine::isReady() const {
  int ready = 0;
  curl_multi_wait(multi_.get(), nullptr, 0, 0, &ready);
  return ready > 0 || timerIsDue();
}

void Engine::step() {
  const auto began = std::chrono::steady_clock::now();
  int running = 0;
  curl_multi_perform(multi_.get(), &running);
  const bool hasRead = std::ranges::any_of(active_, &Transfer::isActive);
  const bool isShared = sharesConnection();
  // Now, so that a connection that nobody uses from here on can be read as well.
  for (Transfer* transfer : active_) transfer->endPass();
  extendDeadlinesByChallenges();
  flushBodies(began);
  noteConnections();
  const bool hasEnded = finishExchanges();
  const bool isQuiet = !isDisturbed_ && !hasRead && !hasEnded;
  notePass(isQuiet, isShared);
  expireIdle();
  outbox_.flush();
  launchAdmitted();
  outbox_.flush();
}

bool Engine::sharesConnection() const {
  bool shares = false;
  for (const Transfer* transfer : active_) {
    const auto& connection = transfer->connection();
    if (connection && connection->input().noteExchange()) shares = true;
  }
  return shares;
}

void Engine::notePass(bool isQuiet, bool isShared) {
  const bool isSettled = quietPasses_ == kQuietPasses;
  if (!isQuiet && (isShared || !isSettled)) quietPasses_ = 0;
  if (isQuiet && !isSettled) ++quietPasses_;
}

void Engine::noteConnections() {
  bool newlyProbed = slots_.endProbes(std::chrono::steady_clock::now());
  for (Transfer* transfer : active_) {
    const auto multiplexes = transfer->takeConnectionKind();
    if (!multiplexes) continue;
    const auto identifier = transfer->identifier();
    const bool known = slots_.isProbed(identifier);
    // An exchange that was not free to choose says nothing new about a host that is known.
    if (known && !transfer->mayMultiplex()) continue;
    slots_.noteMultiplexing(identifier, *multiplexes);
    newlyProbed = newlyProbed || !known;
  }
  if (!newlyProbed) return;
  for (const auto& [identifier, transfer] : transfers_) {
    if (slots_.isProbed(identifier)) transfer->suspendDeadlineUntilPrepared();
  }
}

void Engine::flushBodies(SteadyTime passBegan) {
  const bool collects = std::ranges::any_of(active_, &Transfer::isCollecting);
  const bool isMore = collects && isReady();
  for (Transfer* transfer : active_) transfer->flush(isMore, passBegan);
}

void Engine::extendDeadlinesByChallenges() {
  std::chrono::steady_clock::duration waited{};
  for (Transfer* transfer : active_) waited += transfer->takeTimeInChallenges();
  if (waited == std::chrono::steady_clock::duration::zero()) return;
  for (const auto& [identifier, transfer] : transfers_) transfer->postponeDeadline(waited);
}

bool Engine::finishExchanges() {
  int left = 0;
  bool any = false;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    any = true;
    const CURLcode code = message->data.result;
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    finishExchange(*transfer, code);
  }
  return any;
}

void Engine::finishExchange(Transfer& transfer, CURLcode code) {
  const auto connection = code == CURLE_OK ? nullptr : transfer.connection();
  if (!transfer.follow()) {
    end(transfer, transfer.outcome(code));
    return flush(connection);
  }
  transfer.traceRepetition();
  withdraw(transfer);
  launch(transfer);
}

void Engine::expireIdle() {
  for (Transfer* transfer : takeExpired(std::chrono::steady_clock::now()))
    breakOff(*transfer, transfer->timedOut());
}

std::vector<Transfer*> Engine::takeExpired(SteadyTime now) {
  std::vector<Transfer*> expired;
  for (Transfer* transfer : active_) {
    if (transfer->deadline() <= now) expired.push_back(transfer);
  }
  for (const auto identifier : waiting_.takeDue(now)) {
    Transfer& transfer = *transfers_.at(identifier);
    transfer.flush(false, now);
    if (transfer.deadline() <= now)
      expired.push_back(&transfer);
    else
      lookLater(transfer);
  }
  std::ranges::sort(expired, {}, &Transfer::identifier);
  return expired;
}

void Engine::breakOff(Transfer& transfer, TaskOutcome outcome) {
  const auto connection = transfer.connection();
  transfer.closeConnectionWithExchange();
  end(transfer, std::move(outcome));
  flush(connection);
}

// libcurl keeps the reset of a stream until the next one writes on its connection. What the one
// that is gone had read for others is left to them.
void Engine::flush(const std::shared_ptr<TLSConnection>& connection) {
  if (!connection) return;
  Transfer* chosen = nullptr;
  for (Transfer* transfer : active_) {
    if (transfer->connection() != connection) continue;
    chosen = transfer;
    if (chosen->mayFlushConnection()) break;
  }
  if (chosen == nullptr) return;
  quietPasses_ = 0;
  chosen->flushConnection();
}

void Engine::end(Transfer& transfer, TaskOutcome outcome) {
  const auto identifier = transfer.identifier();
  const auto owned = transfers_.extract(identifier);
  withdraw(transfer);
  transfer.flushRest();
  // Before anybody hears of the end.
  transfer.closeFeed();
  std::shared_ptr<DataTaskObject> task;
  {
    const MutexLock lock(mutex_);
    const auto running = running_.extract(identifier);
    task = running.mapped();
  }
  transfer.traceEnd(outcome);
  task->conclude(std::move(outcome));
}

int Engine::pollMilliseconds() const {
  using std::chrono::milliseconds;
  constexpr milliseconds kLongest{std::numeric_limits<int>::max()};
  auto earliest = std::min(waiting_.earliest(), slots_.nextProbeEnd().value_or(SteadyTime::max()));
  for (const Transfer* transfer : active_)
    earliest = std::min({earliest, transfer->deadline(), transfer->nextFlush()});
  if (earliest == SteadyTime::max()) return static_cast<int>(kLongest.count());
  const auto left = std::chrono::ceil<milliseconds>(earliest - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp(left, milliseconds::zero(), kLongest).count());
}

}  // namespace kvl::urlloading
