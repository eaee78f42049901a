// Time and memory of one thing beside another.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <fstream>
#include <string>

namespace kvlbench {

// The processor time of this thread: what else the machine does leaves the ratios alone.
inline double cpuSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double wallSeconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Seconds in all.
struct Times {
  double peer = 0;
  double subject = 0;
};

// Times both in turn, so that both meet the same machine.
template <class Peer, class Subject>
Times measure(benchmark::State& state, Peer peer, Subject subject) {
  Times times;
  for (auto _ : state) {
    times.peer += peer();
    const double time = subject();
    times.subject += time;
    state.SetIterationTime(time);
  }
  return times;
}

// A field of this process's status, in bytes: "VmRSS:" is the memory that it has now, "VmHWM:" the
// most that it ever had since `forgetPeak`.
inline double memoryStatus(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == field && status >> kilobytes) return kilobytes * 1024;
  }
  return 0;
}

inline void forgetPeak() {
  std::ofstream("/proc/self/clear_refs") << '5';
}

// The most memory that `work` takes beyond what the process has already, in bytes.
template <class Work>
double peakMemoryOf(Work work) {
  forgetPeak();
  const double before = memoryStatus("VmRSS:");
  work();
  return memoryStatus("VmHWM:") - before;
}

}  // namespace kvlbench
