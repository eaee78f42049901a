#include "bench/RequestProbe.h"

#include <openssl/pem.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <variant>

namespace kvlbench {
namespace {

// Enough that every connection is open.
std::size_t warmUpOf(const RequestSettings& settings) {
  constexpr std::size_t kTimes = 6;
  constexpr std::size_t kMost = 2000;
  return settings.bursts > 0 ? 0 : std::min(kTimes * settings.inFlight + 50, kMost);
}

double secondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

kvl::security::OpenSSLPtr<BIO> openFile(const std::string& path) {
  kvl::security::OpenSSLPtr<BIO> file(BIO_new_file(path.c_str(), "r"));
  if (!file) failProbe("cannot read " + path);
  return file;
}

}  // namespace

void failProbe(std::string_view why) {
  std::fprintf(stderr, "%.*s\n", static_cast<int>(why.size()), why.data());
  std::_Exit(EXIT_FAILURE);
}

double clockSeconds() {
  return secondsOf(CLOCK_MONOTONIC);
}

double processorSeconds() {
  return secondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

void printOutcome(std::vector<double> latencies, double seconds, double processor) {
  std::sort(latencies.begin(), latencies.end());
  const auto count = static_cast<double>(latencies.size());
  const auto share = [&](double part) {
    return latencies[static_cast<std::size_t>(part * (count - 1))] * 1e6;
  };
  std::printf("%.1f %.2f %.2f %.3f\n", count / seconds, share(0.5), share(0.99),
              processor / count * 1e6);
  std::fflush(stdout);
}

RequestSettings RequestSettings::parse(int count, char** arguments) {
  RequestSettings settings;
  using Target = std::variant<int*, std::size_t*, double*, std::string*>;
  const std::map<std::string_view, Target> targets = {
      {"--folder", &settings.folder},      {"--port", &settings.port},
      {"--http", &settings.httpVersion},   {"--size", &settings.size},
      {"--in-flight", &settings.inFlight}, {"--limit", &settings.limit},
      {"--seconds", &settings.seconds},    {"--requests", &settings.requests},
      {"--bursts", &settings.bursts},
  };
  for (int i = 1; i + 1 < count; i += 2) {
    const auto target = targets.find(arguments[i]);
    if (target == targets.end()) failProbe(std::string("what is ") + arguments[i] + "?");
    const std::string value = arguments[i + 1];
    if (auto* const* text = std::get_if<std::string*>(&target->second)) **text = value;
    if (auto* const* number = std::get_if<int*>(&target->second)) **number = std::stoi(value);
    if (auto* const* size = std::get_if<std::size_t*>(&target->second)) **size = std::stoul(value);
    if (auto* const* real = std::get_if<double*>(&target->second)) **real = std::stod(value);
  }
  return settings;
}

std::string RequestSettings::baseURL() const {
  return "https://127.0.0.1:" + std::to_string(port) + "/";
}

kvl::security::OpenSSLPtr<X509> readCertificate(const std::string& path) {
  kvl::security::OpenSSLPtr<X509> certificate(
      PEM_read_bio_X509(openFile(path).get(), nullptr, nullptr, nullptr));
  if (!certificate) failProbe("no certificate in " + path);
  return certificate;
}

kvl::security::OpenSSLPtr<EVP_PKEY> readKey(const std::string& path) {
  kvl::security::OpenSSLPtr<EVP_PKEY> key(
      PEM_read_bio_PrivateKey(openFile(path).get(), nullptr, nullptr, nullptr));
  if (!key) failProbe("no key in " + path);
  return key;
}

std::string readText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) failProbe("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void MeasuredPart::open(double time) {
  latencies_.reserve(std::size_t{1} << 16);
  opened_ = time;
  processor_ = processorSeconds();
}

void MeasuredPart::close(double time) {
  processor_ = processorSeconds() - processor_;
  closed_ = time;
}

ClosedLoop::ClosedLoop(const RequestSettings& settings)
    : settings_(settings),
      warmUp_(warmUpOf(settings)),
      settle_(settings.requests > 0 ? 0 : settings.inFlight) {}

std::size_t ClosedLoop::start(std::size_t count) {
  started_ += count;
  return count;
}

std::size_t ClosedLoop::first() {
  const std::lock_guard lock(mutex_);
  if (settings_.bursts > 0) part_.open(clockSeconds());
  return start(warmUp_ == 0 ? settings_.inFlight : std::min(settings_.inFlight, warmUp_));
}

std::size_t ClosedLoop::answered(double started, std::size_t size, int httpVersion) {
  if (size != settings_.size) failProbe("an answer of " + std::to_string(size) + " bytes");
  if (httpVersion != settings_.httpVersion) failProbe("another version of HTTP");
  const double time = clockSeconds();
  const std::lock_guard lock(mutex_);
  if (part_.isOver()) return 0;
  ++answered_;
  if (part_.isOpen()) part_.add(time - started);
  if (settings_.bursts > 0) return nextOfBursts();
  if (answered_ <= warmUp_) return nextOfWarmUp();
  if (!part_.isOpen() && answered_ == warmUp_ + settle_) part_.open(time);
  if (settings_.requests > 0) {
    if (answered_ == warmUp_ + settings_.requests) part_.close(time);
    return started_ < warmUp_ + settings_.requests ? start(1) : 0;
  }
  if (part_.isOpen() && time >= part_.opened() + settings_.seconds) part_.close(time);
  return part_.isOver() ? 0 : start(1);
}

std::size_t ClosedLoop::nextOfBursts() {
  if (answered_ == settings_.bursts * settings_.inFlight) part_.close(clockSeconds());
  return !part_.isOver() && answered_ == started_ ? start(settings_.inFlight) : 0;
}

std::size_t ClosedLoop::nextOfWarmUp() {
  if (answered_ < warmUp_) return started_ < warmUp_ ? start(1) : 0;
  if (settle_ == 0) part_.open(clockSeconds());
  return start(settings_.requests > 0 ? std::min(settings_.inFlight, settings_.requests)
                                      : settings_.inFlight);
}

bool ClosedLoop::isOver() const {
  const std::lock_guard lock(mutex_);
  return part_.isOver();
}

void ClosedLoop::print() const {
  const std::lock_guard lock(mutex_);
  part_.print();
}

}  // namespace kvlbench
