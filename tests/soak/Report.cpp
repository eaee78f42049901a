// What a soak prints.
#include "devservice/service/Json.h"
#include "tests/soak/Soak.h"

#include <cstdio>

namespace kvltest {
namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

// One line of JSON a minute, for whoever draws curves.
void Soak::printLine() {
  nextLine_ += std::chrono::minutes(1);
  const auto totals = ledger_->totals();
  const auto tally = recorder_->tally();
  const auto figures = SoakFigures::now();
  int faults = 0;
  for (const auto& [name, record] : disturbances_.records()) faults += record.times;
  devservice::JsonObject line;
  line.add("seconds", static_cast<std::int64_t>(secondsSince(start_)))
      .add("sent", totals.sent)
      .add("answered", totals.answered)
      .add("failed", totals.failed)
      .add("lost", totals.lost)
      .add("doubled", totals.doubled)
      .add("wrong", totals.wrong)
      .add("open", totals.open)
      .add("events", tally.count)
      .add("eventsMissing", tally.missing)
      .add("eventsDoubled", tally.disorder)
      .add("eventsDamaged", tally.damaged)
      .add("renewals", log_.renewals())
      .add("faults", std::int64_t{faults})
      .add("threads", figures.threads)
      .add("descriptors", figures.descriptors)
      .add("heapKiB", figures.heap >> 10)
      .add("residentKiB", figures.resident >> 10)
      .add("objectsKept", figures.kept)
      .add("processorSeconds", static_cast<std::int64_t>(figures.processorSeconds));
  std::printf("%s\n", line.text().c_str());
  std::fflush(stdout);
}

void Soak::printTable(const SoakFigures& last) {
  const auto totals = ledger_->totals();
  std::printf("\n%-28s %8s\n", "requests", "sent");
  for (const auto& [kind, count] : totals.sentByKind)
    std::printf("  %-26s %8ld\n", kind.c_str(), count);
  std::printf("\n%-28s %8s\n", "errors", "times");
  for (const auto& [error, count] : totals.errors)
    std::printf("  %-26s %8ld\n", error.c_str(), count);
  std::printf("\n%-28s %8s %14s %14s\n", "faults", "times", "back after, s", "at most, s");
  for (const auto& [name, record] : disturbances_.records()) {
    std::printf("  %-26s %8d %14.2f %14.2f\n", name.c_str(), record.times,
                record.all / record.times, record.longest);
  }
  if (baseline_) {
    std::printf("\n%-28s %8s %14s\n", "at rest", "warm", "in the end");
    std::printf("  %-26s %8ld %14ld\n", "threads", baseline_->threads, last.threads);
    std::printf("  %-26s %8ld %14ld\n", "descriptors", baseline_->descriptors, last.descriptors);
    std::printf("  %-26s %8ld %14ld\n", "memory in use, KiB", baseline_->heap >> 10,
                last.heap >> 10);
    std::printf("  %-26s %8ld %14ld\n", "resident memory, KiB", baseline_->resident >> 10,
                last.resident >> 10);
    std::printf("  %-26s %8ld %14ld\n", "objects kept", baseline_->kept, last.kept);
  }
  const auto seconds = secondsSince(start_);
  std::printf("\n%.0f s with seed %lu, %.0f %% of a processor\n", seconds, options_.seed,
              100 * last.processorSeconds / seconds);
  std::fflush(stdout);
}

}  // namespace kvltest
