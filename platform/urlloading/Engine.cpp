#include "platform/urlloading/Engine.h"

#include "platform/security/OpenSSLAccess.h"
#include "platform/urlloading/LoadingErrors.h"
#include "platform/urlloading/Transfer.h"
#include "platform/urlloading/WakeupSockets.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace kvl::urlloading {
namespace {

constexpr int kShortWaitMilliseconds = 2;
constexpr int kQuietPasses = 2;
// Of all hosts together, and for each that may be open to one.
constexpr long kFewestKeptConnections = 16;
constexpr long kKeptConnectionsPerOpen = 4;

// Prepares libcurl and OpenSSL, once per process. False when they cannot be used.
bool prepareLibraries() {
  security::keepOpenSSLUntilTheEnd();
  static const bool prepared = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return prepared;
}

}  // namespace

Engine::Engine(URLSessionConfiguration configuration)
    : configuration_(std::move(configuration)),
      slots_(configuration_.maximumConnectionsPerHost, configuration_.allowsHTTP2) {}

Engine::~Engine() = default;

std::optional<Error> Engine::start(std::shared_ptr<DataTaskObject> task, RequestRef request) {
  const MutexLock lock(mutex_);
  if (invalidated_ || abandoned_) return makeURLError(NSURLErrorCancelled, request->urlText());
  if (!ensureThread()) return makeSystemError(EAGAIN, request->urlText());
  const auto identifier = task->taskIdentifier();
  running_.emplace(identifier, task);
  post({Command::Kind::start, identifier, std::move(task), std::move(request)});
  return std::nullopt;
}

bool Engine::ensureThread() {
  if (threadRuns_) return true;
  if (!prepareLibraries()) return false;
  multi_.reset(curl_multi_init());
  handles_.emplace(configuration_);
  if (!multi_ || !handles_->isUsable()) return false;
  keepWakeupSocketsFromChildren(multi_.get());
  // Without a descriptor left libcurl makes one that nothing can wake.
  if (curl_multi_wakeup(multi_.get()) != CURLM_OK) return false;
  curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
  const auto self = shared_from_this();
  threadRuns_ = startIOThread(self, [self] { self->run(); });
  if (threadRuns_) wakeable_ = multi_.get();
  return threadRuns_;
}

void Engine::cancel(std::uint64_t identifier) {
  postIfRunning(Command::Kind::cancel, identifier);
}

void Engine::unpause(std::uint64_t identifier) {
  postIfRunning(Command::Kind::unpause, identifier);
}

void Engine::feed(std::uint64_t identifier) {
  postIfRunning(Command::Kind::feed, identifier);
}

void Engine::postIfRunning(Command::Kind kind, std::uint64_t identifier) {
  const MutexLock lock(mutex_);
  if (running_.contains(identifier)) post({kind, identifier, nullptr, {}});
}

void Engine::post(Command command) {
  commands_.push_back(std::move(command));
  wake();
}

void Engine::wake() {
  if (wakeable_ != nullptr) curl_multi_wakeup(wakeable_);
}

void Engine::invalidate() {
  const MutexLock lock(mutex_);
  invalidated_ = true;
  wake();
}

bool Engine::isInvalidated() const {
  const MutexLock lock(mutex_);
  return invalidated_;
}

std::vector<std::shared_ptr<DataTaskObject>> Engine::runningTasks() const {
  std::vector<std::shared_ptr<DataTaskObject>> tasks;
  const MutexLock lock(mutex_);
  for (const auto& [identifier, task] : running_) tasks.push_back(task);
  return tasks;
}

void Engine::abandon() {
  {
    const MutexLock lock(mutex_);
    abandoned_ = true;
    wake();
  }
  for (const auto& task : runningTasks()) task->abortChallenge();
}

void Engine::run() {
  std::vector<Command> commands;
  while (takeCommands(commands)) {
    for (Command& command : commands) execute(command);
    commands.clear();
    step();
    waitForActivity();
  }
  tearDown();
}

// What one exchange takes off a connection, libcurl 7.88 keeps for the others, with a timer that
// has them look. It can drop that timer: it compares times in whole milliseconds. The next pass
// finds what is kept, whenever it comes, and what it then takes apart can be for an exchange that
// has had its turn in that pass. So a long wait begins only after two passes in a row in which
// nothing was read or ended, and before which no socket, timer or command had anything to do.
void Engine::waitForActivity() {
  const bool isShort = quietPasses_ < kQuietPasses && !transfers_.empty();
  isDisturbed_ = true;
  // A wake-up can be swallowed while libcurl works: the queue itself is what counts.
  if (hasWork() || isGrowing()) return;
  const bool timerWasDue = timerIsDue();
  const int longest = pollMilliseconds();
  int ready = 0;
  curl_multi_poll(multi_.get(), nullptr, 0,
                  isShort ? std::min(longest, kShortWaitMilliseconds) : longest, &ready);
  isDisturbed_ = !isShort || timerWasDue || ready > 0 || hasWork();
}

bool Engine::isGrowing() const {
  return std::ranges::any_of(transfers_,
                             [](const auto& entry) { return entry.second->isGrowing(); });
}

bool Engine::timerIsDue() const {
  long milliseconds = -1;
  curl_multi_timeout(multi_.get(), &milliseconds);
  return milliseconds == 0;
}

bool Engine::isReady() const {
  int ready = 0;
  curl_multi_poll(multi_.get(), nullptr, 0, 0, &ready);
  return ready > 0 || timerIsDue();
}

bool Engine::hasWork() const {
  const MutexLock lock(mutex_);
  return !commands_.empty() || isOver();
}

bool Engine::isOver() const {
  return abandoned_ || (invalidated_ && running_.empty());
}

bool Engine::takeCommands(std::vector<Command>& commands) {
  const MutexLock lock(mutex_);
  if (isOver()) return false;
  commands.swap(commands_);
  return true;
}

void Engine::execute(Command& command) {
  if (command.kind == Command::Kind::start) return begin(command);
  const auto found = transfers_.find(command.identifier);
  if (found == transfers_.end()) return;
  switch (command.kind) {
    case Command::Kind::cancel:
      return stop(*found->second);
    case Command::Kind::unpause:
      return found->second->unpause();
    case Command::Kind::feed:
      return found->second->feed();
    case Command::Kind::start:
      break;
  }
}

void Engine::begin(Command& command) {
  auto transfer = std::make_unique<Transfer>(std::move(command.task), std::move(command.request),
                                             configuration_, *handles_);
  Transfer& begun = *transfer;
  transfers_.emplace(command.identifier, std::move(transfer));
  begun.traceBegin();
  if (begun.task().isCancelled()) return end(begun, begun.outcome(CURLE_OK));
  launch(begun);
}

void Engine::launch(Transfer& transfer) {
  const auto identifier = transfer.task().taskIdentifier();
  const auto use = transfer.mayMultiplex() ? HostSlots::Use::shared : HostSlots::Use::exclusive;
  if (slots_.admit(identifier, transfer.host(), std::chrono::steady_clock::now(), use,
                   transfer.priority())) {
    return perform(transfer);
  }
  transfer.waitForSlot();
  if (slots_.isProbed(identifier)) transfer.suspendDeadlineUntilPrepared();
}

void Engine::launchAdmitted() {
  // An exchange that fails at once makes room for the next.
  for (auto admitted = slots_.takeAdmitted(); !admitted.empty(); admitted = slots_.takeAdmitted()) {
    for (const auto identifier : admitted) {
      if (const auto found = transfers_.find(identifier); found != transfers_.end()) {
        perform(*found->second);
      }
    }
  }
}

void Engine::perform(Transfer& transfer) {
  const CURLcode code = transfer.prepare();
  if (code != CURLE_OK) return end(transfer, transfer.outcome(code));
  keepConnections();
  if (curl_multi_add_handle(multi_.get(), transfer.easy()) != CURLM_OK)
    end(transfer, transfer.outcome(CURLE_FAILED_INIT));
}

// By itself libcurl keeps four connections for each exchange under way, so it closes most of them
// when a burst drains. It also closes one whenever there are more than it keeps, in use or not, so
// there are as many as all hosts may have.
void Engine::keepConnections() {
  const auto perHost = std::max(static_cast<long>(configuration_.maximumConnectionsPerHost), 1L);
  const auto wanted = std::max({kFewestKeptConnections, kKeptConnectionsPerOpen * perHost,
                                static_cast<long>(slots_.hosts()) * perHost});
  if (wanted <= keptConnections_) return;
  keptConnections_ = wanted;
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, wanted);
}

void Engine::stop(Transfer& transfer) {
  breakOff(transfer, transfer.outcome(CURLE_OK));
}

void Engine::step() {
  const auto began = std::chrono::steady_clock::now();
  int running = 0;
  curl_multi_perform(multi_.get(), &running);
  const bool hasRead =
      std::ranges::any_of(transfers_, [](const auto& entry) { return entry.second->isActive(); });
  // Now, so that a connection that nobody uses from here on can be read as well.
  for (const auto& [identifier, transfer] : transfers_) transfer->endPass();
  extendDeadlinesByChallenges();
  flushBodies(began);
  noteConnections();
  const bool hasEnded = finishExchanges();
  quietPasses_ = isDisturbed_ || hasRead || hasEnded ? 0 : quietPasses_ + 1;
  expireIdle();
  launchAdmitted();
}

void Engine::noteConnections() {
  bool newlyProbed = slots_.endProbes(std::chrono::steady_clock::now());
  for (const auto& [identifier, transfer] : transfers_) {
    const auto multiplexes = transfer->takeConnectionKind();
    if (!multiplexes) continue;
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
  const bool collects = std::ranges::any_of(
      transfers_, [](const auto& entry) { return entry.second->isCollecting(); });
  const bool isMore = collects && isReady();
  for (const auto& [identifier, transfer] : transfers_) transfer->flush(isMore, passBegan);
}

void Engine::extendDeadlinesByChallenges() {
  std::chrono::steady_clock::duration waited{};
  for (const auto& [identifier, transfer] : transfers_) waited += transfer->takeTimeInChallenges();
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
  curl_multi_remove_handle(multi_.get(), transfer.easy());
  slots_.release(transfer.task().taskIdentifier());
  launch(transfer);
}

void Engine::expireIdle() {
  const auto now = std::chrono::steady_clock::now();
  std::vector<Transfer*> expired;
  for (const auto& [identifier, transfer] : transfers_) {
    if (transfer->deadline() <= now) expired.push_back(transfer.get());
  }
  for (Transfer* transfer : expired) breakOff(*transfer, transfer->timedOut());
}

void Engine::breakOff(Transfer& transfer, TaskOutcome outcome) {
  const auto connection = transfer.connection();
  transfer.closeConnectionWithExchange();
  end(transfer, std::move(outcome));
  flush(connection);
}

// libcurl keeps the reset of a stream until the next one writes on its connection.
void Engine::flush(const std::shared_ptr<TLSConnection>& connection) {
  if (!connection) return;
  Transfer* chosen = nullptr;
  for (const auto& [identifier, transfer] : transfers_) {
    if (transfer->connection() != connection) continue;
    chosen = transfer.get();
    if (chosen->mayFlushConnection()) break;
  }
  if (chosen != nullptr) chosen->flushConnection();
}

void Engine::end(Transfer& transfer, TaskOutcome outcome) {
  const auto identifier = transfer.task().taskIdentifier();
  const auto owned = transfers_.extract(identifier);
  curl_multi_remove_handle(multi_.get(), transfer.easy());
  slots_.release(identifier);
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
  task->complete(std::move(outcome));
}

int Engine::pollMilliseconds() const {
  using std::chrono::milliseconds;
  constexpr milliseconds kLongest{std::numeric_limits<int>::max()};
  auto earliest = slots_.nextProbeEnd().value_or(SteadyTime::max());
  for (const auto& [identifier, transfer] : transfers_)
    earliest = std::min({earliest, transfer->deadline(), transfer->nextFlush()});
  if (earliest == SteadyTime::max()) return static_cast<int>(kLongest.count());
  const auto left = std::chrono::ceil<milliseconds>(earliest - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp(left, milliseconds::zero(), kLongest).count());
}

void Engine::tearDown() {
  for (const auto& [identifier, transfer] : transfers_)
    curl_multi_remove_handle(multi_.get(), transfer->easy());
  transfers_.clear();
  {
    const MutexLock lock(mutex_);
    wakeable_ = nullptr;
  }
  multi_.reset();
  handles_.reset();
}

}  // namespace kvl::urlloading
