// The event-stream parser against a bare scan for line ends over the same bytes in the same run.
#include "bench/Measurement.h"
#include "eventstream/EventFraming.h"
#include "eventstream/EventStreamParser.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::size_t allocations = 0;

}  // namespace

// Not inlined: g++ would take the pair of them for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using kvl::eventstream::EventStreamParser;
using kvlbench::cpuSeconds;
using kvlbench::measure;

constexpr std::size_t kChunkSize = 64 << 10;
constexpr std::size_t kSegmentSize = 1460;  // what one Ethernet frame carries of TCP
constexpr std::size_t kEventBytes = std::size_t{4} << 20;
constexpr std::size_t kLongLine = 64 << 20;
constexpr std::size_t kFieldsPerEvent = 3;

// An event of exactly `size` bytes with a name, an identifier and data.
std::string makeEvent(std::size_t number, std::size_t size) {
  std::string text = "event: update\nid: " + std::to_string(1'000'000 + number) + "\ndata: ";
  text.append(size - text.size() - 2, 'x');
  return text + "\n\n";
}

// Whole events, as a service that flushes each of them delivers them: about `kChunkSize` a chunk.
std::vector<kvl::Data> makeChunks(std::size_t eventSize, std::size_t total) {
  std::vector<kvl::Data> chunks;
  std::size_t number = 0;
  for (std::size_t made = 0; made < total;) {
    std::string chunk;
    while (chunk.empty() || chunk.size() + eventSize <= kChunkSize)
      chunk += makeEvent(number++, eventSize);
    made += chunk.size();
    chunks.push_back(kvl::Data::adoptingText(std::move(chunk)));
  }
  return chunks;
}

std::vector<kvl::Data> cut(const std::string& text, std::size_t size) {
  std::vector<kvl::Data> chunks;
  for (std::size_t begin = 0; begin < text.size(); begin += size)
    chunks.push_back(kvl::Data::fromText(std::string_view(text).substr(begin, size)));
  return chunks;
}

double scanTime(const std::vector<kvl::Data>& chunks) {
  const double start = cpuSeconds();
  std::size_t lines = 0;
  for (const auto& chunk : chunks) {
    std::string_view rest = chunk.text();
    while (const void* end = std::memchr(rest.data(), '\n', rest.size())) {
      rest.remove_prefix(static_cast<std::size_t>(static_cast<const char*>(end) - rest.data()) + 1);
      ++lines;
    }
  }
  benchmark::DoNotOptimize(lines);
  return cpuSeconds() - start;
}

// Events are dropped as they come, which is part of what they cost.
std::size_t parse(const std::vector<kvl::Data>& chunks) {
  EventStreamParser state;
  std::size_t events = 0;
  for (const auto& chunk : chunks) events += state.read(chunk).size();
  return events;
}

double parseTime(const std::vector<kvl::Data>& chunks) {
  const double start = cpuSeconds();
  benchmark::DoNotOptimize(parse(chunks));
  return cpuSeconds() - start;
}

std::int64_t sizeOf(const std::vector<kvl::Data>& chunks) {
  std::int64_t size = 0;
  for (const auto& chunk : chunks) size += static_cast<std::int64_t>(chunk.size());
  return size;
}

std::string joined(const std::vector<kvl::Data>& chunks) {
  std::string text;
  for (const auto& chunk : chunks) text += chunk.text();
  return text;
}

// times_floor: the parser's time in multiples of the scan's.
void compareEvents(benchmark::State& state, const std::vector<kvl::Data>& chunks) {
  const std::size_t before = allocations;
  const std::size_t count = parse(chunks);
  const std::size_t allocated = allocations - before;
  const auto times =
      measure(state, [&] { return scanTime(chunks); }, [&] { return parseTime(chunks); });
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * sizeOf(chunks));
  state.counters["times_floor"] = times.subject / times.peer;
  state.counters["allocations_per_field"] =
      static_cast<double>(allocated) / static_cast<double>(count * kFieldsPerEvent);
}

void events(benchmark::State& state) {
  compareEvents(state, makeChunks(static_cast<std::size_t>(state.range(0)), kEventBytes));
}
BENCHMARK(events)->Arg(100)->Arg(4096 + 64)->UseManualTime()->Unit(benchmark::kMillisecond);

// As they come when nobody flushes: cut anywhere.
void cutEvents(benchmark::State& state) {
  const auto whole = makeChunks(static_cast<std::size_t>(state.range(0)), kEventBytes);
  compareEvents(state, cut(joined(whole), static_cast<std::size_t>(state.range(1))));
}
BENCHMARK(cutEvents)
    ->Args({100, kSegmentSize})
    ->Args({100, 16 << 10})
    ->Args({4096, kSegmentSize})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// times_ended: what the line costs in multiples of the same bytes with line ends.
// memory_of_line: the most memory beyond the bytes themselves, in multiples of the line.
void oneLongLine(benchmark::State& state) {
  const std::string prefix = "event: a\n\ndata: ";
  const auto line =
      cut(prefix + std::string(kLongLine - prefix.size() - 2, 'x') + "\n\n", kSegmentSize);
  std::vector<kvl::Data> ended;
  const std::string segment = makeEvent(0, kSegmentSize);
  while (ended.size() < line.size()) ended.push_back(kvl::Data::fromText(segment));
  const double peak = kvlbench::peakMemoryOf([&] { benchmark::DoNotOptimize(parse(line)); });
  const auto times =
      measure(state, [&] { return parseTime(ended); }, [&] { return parseTime(line); });
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * sizeOf(line));
  state.counters["times_ended"] = times.subject / times.peer;
  state.counters["memory_of_line"] = peak / static_cast<double>(kLongLine);
}
BENCHMARK(oneLongLine)->UseManualTime()->Unit(benchmark::kMillisecond);

// Brings the bytes from the network to the parser's chunks.
double collectTime(std::string_view piece) {
  const double start = cpuSeconds();
  kvl::urlloading::PendingBody body(std::make_unique<kvl::eventstream::EventFraming>());
  for (std::size_t size = 0; size < kLongLine; size += piece.size()) {
    body.append(piece, {});
    const auto due = body.due(kvl::urlloading::PendingBody::Source::flowing, {});
    benchmark::DoNotOptimize(body.take(due));
  }
  return cpuSeconds() - start;
}

// times_ended: what collecting an event of 64 MiB costs in multiples of the same bytes in events of
// 16 KiB.
void collectOneLongEvent(benchmark::State& state) {
  constexpr std::size_t kPiece = 16 << 10;
  const std::string event = makeEvent(0, kPiece);
  const std::string middle(kPiece, 'x');
  const auto times =
      measure(state, [&] { return collectTime(event); }, [&] { return collectTime(middle); });
  state.counters["times_ended"] = times.subject / times.peer;
}
BENCHMARK(collectOneLongEvent)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
