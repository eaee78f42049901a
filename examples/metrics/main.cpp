// A host that measures: fetches the paths that it is given and shows what that took, in the text
// format that Prometheus reads. A server that runs for long would answer with the same text.

#include <local/local.h>
#include <local/platform/Mutex.h>
#include <local/platform/Trace.h>

#include <array>
#include <chrono>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <utility>

namespace {

using Kind = kvl::TraceRecord::Kind;

double secondsOf(std::chrono::nanoseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

// Durations in seconds: how many were at most so long.
class Histogram {
 public:
  void add(double value) {
    for (std::size_t i = 0; i < kBounds.size(); ++i) counts_[i] += value <= kBounds[i] ? 1 : 0;
    ++count_;
    sum_ += value;
  }
  void write(std::ostream& out, const std::string& name) const {
    out << "# TYPE " << name << " histogram\n";
    for (std::size_t i = 0; i < kBounds.size(); ++i)
      out << name << "_bucket{le=\"" << kBounds[i] << "\"} " << counts_[i] << '\n';
    out << name << "_bucket{le=\"+Inf\"} " << count_ << '\n'
        << name << "_sum " << sum_ << '\n'
        << name << "_count " << count_ << '\n';
  }

 private:
  static constexpr std::array kBounds = {0.005, 0.02, 0.1, 0.5, 2.0, 10.0};
  std::array<std::uint64_t, kBounds.size()> counts_{};
  std::uint64_t count_ = 0;
  double sum_ = 0;
};

// Counts only, since whoever tells must not wait. Paths are no labels: there is no end of them.
class Metrics {
 public:
  void note(const kvl::TraceRecord& record) {
    const kvl::MutexLock lock(mutex_);
    switch (record.kind) {
      case Kind::notarisationEnded:
        ++counters_[record.error == nullptr ? "kvlocal_notarisations_total{outcome=\"granted\"}"
                                            : "kvlocal_notarisations_total{outcome=\"failed\"}"];
        return notarisations_.add(secondsOf(record.duration));
      case Kind::connected:
        ++counters_["kvlocal_connections_total"];
        return connections_.add(secondsOf(record.duration));
      case Kind::requestEnded:
        ++counters_["kvlocal_requests_total{status=\"" + std::to_string(record.status) + "\"}"];
        counters_["kvlocal_received_bytes_total"] += record.bytes;
        return requests_.add(secondsOf(record.duration));
      case Kind::requestRepeated:
        ++counters_["kvlocal_repetitions_total"];
        return;
      case Kind::eventsArrived:
        counters_["kvlocal_events_total"] += record.count;
        return;
      default:
        return;
    }
  }

  [[nodiscard]] std::string text() const {
    const kvl::MutexLock lock(mutex_);
    std::ostringstream out;
    std::string family;
    for (const auto& [name, value] : counters_) {
      const auto own = name.substr(0, name.find('{'));
      if (std::exchange(family, own) != own) out << "# TYPE " << own << " counter\n";
      out << name << ' ' << value << '\n';
    }
    notarisations_.write(out, "kvlocal_notarisation_seconds");
    connections_.write(out, "kvlocal_connection_seconds");
    requests_.write(out, "kvlocal_request_seconds");
    return out.str();
  }

 private:
  mutable kvl::Mutex mutex_;
  std::map<std::string, std::int64_t> counters_ KVL_GUARDED_BY(mutex_);
  Histogram notarisations_ KVL_GUARDED_BY(mutex_);
  Histogram connections_ KVL_GUARDED_BY(mutex_);
  Histogram requests_ KVL_GUARDED_BY(mutex_);
};

}  // namespace

int main(int argc, char** argv) {
  kvl::setHostIdentifier("korvale.vandrel.example.metrics");
  Metrics metrics;
  const auto trace =
      kvl::observeTrace([&metrics](const kvl::TraceRecord& record) { metrics.note(record); });
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  const auto failure = session->waitUntilEstablished(std::chrono::seconds(30));
  if (failure) std::cerr << kvl::printable(kvl::errorText(*failure)) << std::endl;
  for (int i = 1; i < argc && !failure; ++i) {
    kvl::Semaphore isOver;
    session->request(kvl::URLRequest(argv[i]),
                     [&isOver](const auto&, const auto&, const auto&) { isOver.signal(); });
    isOver.wait();
  }
  std::cout << metrics.text();
  return failure ? 1 : 0;
}
