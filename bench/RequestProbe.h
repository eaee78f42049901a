// What the programs that are compared share: their command line, whom they trust, when the next
// request is due and what is printed in the end. Each of them makes the same requests in its own
// way.
#pragma once

#include "platform/security/OpenSSLAccess.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kvlbench {

struct RequestSettings {
  std::string folder;  // of the certificates
  int port = 0;
  int httpVersion = 1;
  std::size_t size = 1024;  // of each body
  std::size_t inFlight = 1;
  std::size_t limit = 0;     // of the requests that the peer is given at once; 0 for none
  double seconds = 0.4;      // of the part that is measured, unless `requests` says how many
  std::size_t requests = 0;  // in the part that is measured
  std::size_t bursts = 0;    // of `inFlight` requests each, instead of a steady flow

  // Ends the process when the arguments are none.
  static RequestSettings parse(int count, char** arguments);
  [[nodiscard]] std::string baseURL() const;
  [[nodiscard]] std::string path() const { return std::to_string(size); }
  [[nodiscard]] std::string file(const char* name) const { return folder + "/" + name; }
};

inline constexpr auto kAuthorityFile = "authority.pem";
inline constexpr auto kClientFile = "client.pem";
inline constexpr auto kClientKeyFile = "client-key.pem";

// Of files that RequestWorld has written. Ends the process when they cannot be read.
[[nodiscard]] kvl::security::OpenSSLPtr<X509> readCertificate(const std::string& path);
[[nodiscard]] kvl::security::OpenSSLPtr<EVP_PKEY> readKey(const std::string& path);
[[nodiscard]] std::string readText(const std::string& path);

[[noreturn]] void failProbe(std::string_view why);

// Of a clock that all processes share.
[[nodiscard]] double clockSeconds();
// Of all threads of this process so far.
[[nodiscard]] double processorSeconds();
// What runProbe reads: how many a second, the median and the 99th percentile of the microseconds
// that one took, and microseconds of processor time for one.
void printOutcome(std::vector<double> latencies, double seconds, double processor);

// The part of a run that is measured. Usable by one thread at a time.
class MeasuredPart {
 public:
  void open(double time);
  void close(double time);
  [[nodiscard]] bool isOpen() const { return opened_ > 0 && closed_ == 0; }
  [[nodiscard]] bool isOver() const { return closed_ > 0; }
  [[nodiscard]] double opened() const { return opened_; }  // 0 before
  // What one thing took, in seconds.
  void add(double latency) { latencies_.push_back(latency); }
  void print() const { printOutcome(latencies_, closed_ - opened_, processor_); }

 private:
  double opened_ = 0;
  double closed_ = 0;
  double processor_ = 0;
  std::vector<double> latencies_;
};

// Keeps so many requests under way: one that is answered makes room for the next. A part that is
// not measured opens the connections and drains; what is measured in seconds begins when the line
// has gone round once more. Usable from any thread.
class ClosedLoop {
 public:
  explicit ClosedLoop(const RequestSettings& settings);

  // How many requests to start at the beginning.
  [[nodiscard]] std::size_t first();
  // Takes an answer to a request that was started at that time, and says how many requests to start
  // now. Ends the process when it is not the answer that was asked for.
  [[nodiscard]] std::size_t answered(double started, std::size_t size, int httpVersion);
  [[nodiscard]] bool isOver() const;
  void print() const;

 private:
  std::size_t start(std::size_t count);
  std::size_t nextOfBursts();
  std::size_t nextOfWarmUp();

  const RequestSettings settings_;
  const std::size_t warmUp_;
  const std::size_t settle_;
  mutable std::mutex mutex_;
  std::size_t started_ = 0;
  std::size_t answered_ = 0;
  MeasuredPart part_;
};

}  // namespace kvlbench
