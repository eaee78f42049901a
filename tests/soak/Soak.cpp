#include "tests/soak/Soak.h"

#include "devservice/service/Json.h"
#include "platform/environment/Environment.h"
#include "tests/integration/EventStreamFixture.h"

#include <local/platform/Log.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unordered_set>

namespace kvltest {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kLogLines = 200;
constexpr const char* kSource = "events?interval=200&batch=2&size=300";
constexpr std::size_t kEventSize = 300;
// Before an outcome is called missing: every wait of a request has its limit below that.
constexpr std::chrono::seconds kLongestRequest{150};
constexpr std::chrono::seconds kRequestSilence{10};
// By then each fault has come twice.
constexpr std::chrono::minutes kWarmUp{6};
constexpr std::chrono::minutes kBetweenRests{10};

Disturbances::Options disturbancesOf(const SoakOptions& options) {
  const bool isShort = options.duration < 1min;
  return {.seed = options.seed,
          .span = isShort ? 200ms : 3000ms,
          .lifetime = isShort ? 4 : 10,
          .source = kSource};
}

// Retries come quickly, so that more faults have their turn.
std::shared_ptr<kvl::Environment> impatientEnvironment() {
  auto environment = std::make_shared<kvl::Environment>();
  environment->limits.recoverableDelay = 1s;
  environment->limits.defaultDelay = 2s;
  return environment;
}

// The number of a request in a line of the service's log; 0 for none, and for those of other hosts.
std::int64_t numberIn(std::string_view line) {
  constexpr std::string_view kMark = "/echo?number=";
  const auto mark = line.find(kMark);
  if (mark == std::string_view::npos) return 0;
  std::int64_t number = 0;
  std::from_chars(line.data() + mark + kMark.size(), line.data() + line.size(), number);
  return number < kVisitors ? number : 0;
}

// A request that the services have seen more than once; 0 when there is none.
std::int64_t sentTwice(const std::filesystem::path& folder) {
  std::unordered_set<std::int64_t> seen;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.path().filename().string().starts_with("service-")) continue;
    std::ifstream log(entry.path());
    for (std::string line; std::getline(log, line);) {
      const auto number = numberIn(line);
      if (number != 0 && !seen.insert(number).second) return number;
    }
  }
  return 0;
}

}  // namespace

LogTail::LogTail() : previous_(kvl::setLogSink([this](std::string_view line) { take(line); })) {}

LogTail::~LogTail() {
  kvl::setLogSink(std::move(previous_));
}

void LogTail::take(std::string_view line) {
  const kvl::MutexLock lock(mutex_);
  if (line.starts_with("notary signature valid until")) ++renewals_;
  lines_.emplace_back(line);
  if (lines_.size() > kLogLines) lines_.pop_front();
}

std::vector<std::string> LogTail::lines() const {
  const kvl::MutexLock lock(mutex_);
  return {lines_.begin(), lines_.end()};
}

std::int64_t LogTail::renewals() const {
  const kvl::MutexLock lock(mutex_);
  return renewals_;
}

Soak::Soak(const SoakOptions& options)
    : options_(options), disturbances_(world_, disturbancesOf(options)) {
  const auto environment = impatientEnvironment();
  world_.session = KVLSession::sessionWithNotary(
      std::make_shared<KVLNotary>(std::nullopt, environment), {}, environment);
  auto configuration = world_.session->configuration();
  configuration.timeoutIntervalForRequest = kRequestSilence;
  world_.session->setConfiguration(configuration);
  recorder_->setKept(0);
  recorder_->setEventSize(kEventSize);
  world_.session->setDelegate(recorder_);
  world_.session->setEventStreamSource(kSource);
  disturbances_.setSender({world_.session, ledger_, Random(options.seed)});
}

// What is still under way finds nobody to tell.
Soak::~Soak() {
  traffic_.reset();
  world_.session->setDelegate({});
  world_.session->setEventStreamSource("");
}

bool Soak::run() {
  if (!disturbances_.waitUntilServed()) {
    blame("the service was never reached");
  } else {
    start_ = Clock::now();
    nextLine_ = start_ + 1min;
    const auto end = start_ + options_.duration;
    traffic_.emplace(Sender{world_.session, ledger_, Random(options_.seed + 1)}, options_.rate);
    disturbUntil(start_ + std::min<Clock::duration>(options_.duration / 5, kWarmUp));
    rest();
    while (reasons_.empty() && Clock::now() < end) {
      traffic_->setPaused(false);
      disturbUntil(std::min(end, Clock::now() + kBetweenRests));
      rest();
    }
    finish();
  }
  if (!reasons_.empty())
    for (const auto& line : log_.lines()) std::fprintf(stderr, "log: %s\n", line.c_str());
  return reasons_.empty();
}

void Soak::disturbUntil(Clock::time_point end) {
  const auto pause = isShort() ? 700ms : 5000ms;
  while (reasons_.empty() && Clock::now() < end) {
    if (!disturbances_.next()) {
      blame(std::string("not reached again after the fault: ") + disturbances_.lastName());
    }
    for (const auto& line : ledger_->openForLongerThan(kLongestRequest)) blame(line);
    if (Clock::now() >= nextLine_) printLine();
    std::this_thread::sleep_until(std::min(end, Clock::now() + pause));
  }
}

// Lets everything come to an end that is under way and looks what is left.
void Soak::rest() {
  traffic_->setPaused(true);
  if (!ledger_->waitUntilNothingIsOpen(kLongestRequest)) {
    for (const auto& line : ledger_->openForLongerThan(0s)) blame(line);
  }
  const auto figures = figuresAtRest(baseline_, isShort() ? 200ms : 6000ms, 60s);
  if (!baseline_) {
    baseline_ = figures;
  } else if (const auto text = growth(*baseline_, figures); !text.empty()) {
    blame("at rest: " + text);
  }
}

void Soak::finish() {
  const auto seen = recorder_->tally().last;
  if (!recorder_->waitForNumber(seen + 3)) blame("no events come any more");
  judge(SoakFigures::now());
}

void Soak::judge(const SoakFigures& last) {
  const auto totals = ledger_->totals();
  for (const auto& line : ledger_->faults()) blame(line);
  if (totals.open != 0) blame(kvl::format("%ld requests without an outcome", totals.open));
  if (totals.answered == 0) blame("nothing was answered");
  const auto tally = recorder_->tally();
  if (const auto unbroken = isUnbroken(tally, tally.last); !unbroken) blame(unbroken.message());
  if (log_.renewals() < 2) blame("no renewal took place");
  if (const auto number = sentTwice(world_.bus.directory()); number != 0)
    blame(kvl::format("request %ld was sent twice", number));
  printLine();
  printTable(last);
}

void Soak::blame(const std::string& reason) {
  reasons_.push_back(reason);
  std::printf("FAILED (seed %lu): %s\n", options_.seed, reason.c_str());
  std::fflush(stdout);
}

}  // namespace kvltest
