#include "tests/soak/Figures.h"

#include "notary/ProcessReferences.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/Sanitized.h"

#include <local/platform/Log.h>

#include <malloc.h>
#include <sys/resource.h>

#include <thread>

namespace kvltest {
namespace {

// Connections to the service come and go at rest, too; a pool keeps some threads.
constexpr std::int64_t kMoreThreads = 8;
constexpr std::int64_t kMoreDescriptors = 16;
// Buffers of connections and pieces that pools keep, and what each kept object takes with the
// places that it stands in.
constexpr std::int64_t kMoreHeap = 4 << 20;
constexpr std::int64_t kHeapForEach = 3 << 10;

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

SoakFigures SoakFigures::now() {
  SoakFigures figures;
  figures.threads = static_cast<std::int64_t>(threadCount());
  figures.descriptors = static_cast<std::int64_t>(descriptorCount());
  figures.resident = residentMemory();
  const auto heap = mallinfo2();
  figures.heap = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  figures.kept = static_cast<std::int64_t>(kvl::notary::keptObjectCount());
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  figures.processorSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  return figures;
}

SoakFigures figuresAtRest(const std::optional<SoakFigures>& before, std::chrono::milliseconds calm,
                          std::chrono::seconds limit) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kLook{50};
  const auto end = Clock::now() + limit;
  auto last = SoakFigures::now();
  auto since = Clock::now();
  while (Clock::now() < end) {
    std::this_thread::sleep_for(kLook);
    const auto now = SoakFigures::now();
    const bool isSame = now.threads == last.threads && now.descriptors == last.descriptors;
    const bool hasGrown = before && !growth(*before, now).empty();
    if (!isSame || hasGrown) since = Clock::now();
    last = now;
    if (Clock::now() - since >= calm) break;
  }
  return last;
}

std::string growth(const SoakFigures& before, const SoakFigures& after) {
  std::string text;
  if (after.threads > before.threads + kMoreThreads)
    text += kvl::format("; threads from %ld to %ld", before.threads, after.threads);
  if (after.descriptors > before.descriptors + kMoreDescriptors)
    text += kvl::format("; descriptors from %ld to %ld", before.descriptors, after.descriptors);
  const auto heap = before.heap + kMoreHeap + kHeapForEach * (after.kept - before.kept);
  if (!kSanitized && after.heap > heap) {
    text += kvl::format("; memory in use from %ld to %ld KiB with %ld objects kept",
                        before.heap >> 10, after.heap >> 10, after.kept - before.kept);
  }
  return text.empty() ? text : text.substr(2);
}

}  // namespace kvltest
