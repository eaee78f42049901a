#include "platform/urlloading/Engine.h"

#include "platform/security/OpenSSLAccess.h"
#include "platform/urlloading/LoadingErrors.h"
#include "platform/urlloading/Transfer.h"
#include "platform/urlloading/WakeupSockets.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kvl::urlloading {
namespace {

// Of all hosts together, and for each that may be open to one.
constexpr long kFewestKeptConnections = 16;
constexpr long kKeptConnectionsPerOpen = 4;
// A process often may have a thousand descriptors. One host's burst is kept, however large.
constexpr long kMostKeptConnections = 256;

// Prepares libcurl and OpenSSL, once per process. False when they cannot be used.
bool prepareLibraries() {
  security::keepOpenSSLUntilTheEnd();
  static const bool prepared = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return prepared;
}

}  // namespace

Engine::Engine(URLSessionConfiguration configuration, std::shared_ptr<DispatchQueue> queue)
    : configuration_(std::move(configuration)),
      slots_(configuration_.maximumConnectionsPerHost, configuration_.allowsHTTP2),
      outbox_(std::move(queue)) {}

Engine::~Engine() = default;

std::optional<Error> Engine::start(std::shared_ptr<DataTaskObject> task, RequestRef request) {
  MutexLock lock(mutex_);
  if (invalidated_ || abandoned_) return makeURLError(NSURLErrorCancelled, request->urlText());
  if (!ensureThread()) return makeSystemError(EAGAIN, request->urlText());
  const auto identifier = task->taskIdentifier();
  running_.emplace(identifier, task);
  commands_.push_back({Command::Kind::start, identifier, std::move(task), std::move(request)});
  const bool sleeps = takeSleep();
  lock.unlock();
  if (sleeps) waker_.wake();
  return std::nullopt;
}

bool Engine::ensureThread() {
  if (threadRuns_) return true;
  if (!prepareLibraries()) return false;
  multi_.reset(curl_multi_init());
  handles_.emplace(configuration_);
  if (!multi_ || !handles_->isUsable()) return false;
  if (!waker_.open()) return false;
  keepWakeupSocketsFromChildren(multi_.get());
  curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
  const auto self = shared_from_this();
  threadRuns_ = startIOThread(self, [self] { self->run(); });
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
  MutexLock lock(mutex_);
  if (!running_.contains(identifier)) return;
  commands_.push_back({kind, identifier, nullptr, {}});
  const bool sleeps = takeSleep();
  lock.unlock();
  if (sleeps) waker_.wake();
}

// A sleeping I/O thread is woken once, whatever comes meanwhile, and one that is awake never. It
// notes under the lock that it sleeps, when no command waits and it need not end. Whoever changes
// that under the lock and finds the note takes it away, and wakes the thread after the lock has
// been given back, since the thread takes it first of all. Between note and wait the thread leaves
// wake-ups alone, so none is lost. One that comes when something else has woken the thread already
// has the next wait return at once.
bool Engine::fallAsleep() {
  const MutexLock lock(mutex_);
  isAsleep_ = commands_.empty() && !isOver();
  return isAsleep_;
}

bool Engine::takeCommands(std::vector<Command>& commands) {
  const MutexLock lock(mutex_);
  isAsleep_ = false;
  if (isOver()) return false;
  commands.swap(commands_);
  return true;
}

void Engine::invalidate() {
  MutexLock lock(mutex_);
  invalidated_ = true;
  const bool sleeps = takeSleep();
  lock.unlock();
  if (sleeps) waker_.wake();
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
  MutexLock lock(mutex_);
  abandoned_ = true;
  const bool sleeps = takeSleep();
  lock.unlock();
  if (sleeps) waker_.wake();
  for (const auto& task : runningTasks()) task->abortChallenge();
}

void Engine::run() {
  std::vector<Command> commands;
  while (takeCommands(commands)) {
    isDisturbed_ = isDisturbed_ || !commands.empty();
    for (Command& command : commands) execute(command);
    commands.clear();
    step();
    waitForActivity();
  }
  tearDown();
}

bool Engine::isOver() const {
  return abandoned_ || (invalidated_ && running_.empty());
}

void Engine::execute(Command& command) {
  if (command.kind == Command::Kind::start) return begin(command);
  const auto found = transfers_.find(command.identifier);
  if (found == transfers_.end()) return;
  Transfer& transfer = *found->second;
  switch (command.kind) {
    case Command::Kind::cancel:
      return stop(transfer);
    case Command::Kind::unpause:
      transfer.unpause();
      break;
    case Command::Kind::feed:
      transfer.feed();
      break;
    case Command::Kind::start:
      break;
  }
  // Its silence counts again.
  if (!isActive(transfer)) lookLater(transfer);
}

void Engine::begin(Command& command) {
  auto transfer = std::make_unique<Transfer>(std::move(command.task), std::move(command.request),
                                             configuration_, *handles_, bodyMemory_);
  Transfer& begun = *transfer;
  transfers_.emplace(command.identifier, std::move(transfer));
  begun.traceBegin();
  if (begun.task().isCancelled()) return end(begun, begun.outcome(CURLE_OK));
  launch(begun);
}

void Engine::launch(Transfer& transfer) {
  const auto identifier = transfer.identifier();
  const auto use = transfer.mayMultiplex() ? HostSlots::Use::shared : HostSlots::Use::exclusive;
  if (slots_.admit(identifier, transfer.host(), std::chrono::steady_clock::now(), use,
                   transfer.priority())) {
    return perform(transfer);
  }
  transfer.waitForSlot();
  if (slots_.isProbed(identifier)) transfer.suspendDeadlineUntilPrepared();
  lookLater(transfer);
}

void Engine::lookLater(Transfer& transfer) {
  waiting_.set(transfer.identifier(), std::min(transfer.deadline(), transfer.nextFlush()));
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
    return end(transfer, transfer.outcome(CURLE_FAILED_INIT));
  activate(transfer);
}

void Engine::activate(Transfer& transfer) {
  const auto identifier = transfer.identifier();
  waiting_.remove(identifier);
  active_.insert(std::ranges::upper_bound(active_, identifier, {}, &Transfer::identifier),
                 &transfer);
}

bool Engine::isActive(const Transfer& transfer) const {
  return std::ranges::binary_search(active_, transfer.identifier(), {}, &Transfer::identifier);
}

void Engine::withdraw(Transfer& transfer) {
  const auto identifier = transfer.identifier();
  waiting_.remove(identifier);
  if (isActive(transfer)) {
    active_.erase(std::ranges::lower_bound(active_, identifier, {}, &Transfer::identifier));
    curl_multi_remove_handle(multi_.get(), transfer.easy());
  }
  slots_.release(identifier);
}

// By itself libcurl keeps four connections for each exchange under way, so it closes most of them
// when a burst drains. It also closes one whenever there are more than it keeps, in use or not, so
// there are as many as all hosts may have.
void Engine::keepConnections() {
  const auto perHost = std::max(static_cast<long>(configuration_.maximumConnectionsPerHost), 1L);
  const auto ofAllHosts = std::max({kFewestKeptConnections, kKeptConnectionsPerOpen * perHost,
                                    static_cast<long>(slots_.hosts()) * perHost});
  const auto wanted = std::max(std::min(ofAllHosts, kMostKeptConnections), perHost);
  if (wanted <= keptConnections_) return;
  keptConnections_ = wanted;
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, wanted);
}

void Engine::stop(Transfer& transfer) {
  breakOff(transfer, transfer.outcome(CURLE_OK));
}

void Engine::tearDown() {
  for (const Transfer* transfer : active_) curl_multi_remove_handle(multi_.get(), transfer->easy());
  active_.clear();
  transfers_.clear();
  multi_.reset();
  handles_.reset();
}

}  // namespace kvl::urlloading
