// Writing binary property lists, beside libplist on the same document in the same run.
#include "bench/Measurement.h"
#include "bench/MenuDocument.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/PropertyListWriter.h"

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <memory>
#include <string>

namespace kvlbench {
namespace {

// As JSON, in bytes; the property lists are of 50 KB, 1, 5 and 10 MB.
constexpr std::int64_t kSmall = 76'000;
constexpr std::int64_t kMiddle = 1'520'000;
constexpr std::int64_t kHalf = 7'600'000;
constexpr std::int64_t kWhole = 15'200'000;

kvl::Value withoutNulls(const kvl::Value& value) {
  if (const auto array = value.array()) {
    kvl::Array result;
    for (const auto& element : *array) result.append(withoutNulls(element));
    return result;
  }
  const auto dictionary = value.dictionary();
  if (!dictionary) return value;
  kvl::Dictionary result;
  for (const auto& [key, element] : *dictionary) {
    if (!element.isNull()) result.set(key, withoutNulls(element));
  }
  return result;
}

// A menu with dates and data, which only property lists hold.
kvl::Value documentOf(std::int64_t size) {
  const auto text = kvl::Data::adoptingText(menuDocument(static_cast<std::size_t>(size)));
  kvl::Dictionary document = *withoutNulls(*kvl::valueFromJSON(text, nullptr)).dictionary();
  document.set("date", kvl::Date(736259696));
  document.set("image", kvl::Data(kvl::Bytes(1000)));
  return document;
}

plist_t peerOf(const kvl::Value& value);

plist_t peerOf(const kvl::Array& array) {
  const plist_t node = plist_new_array();
  for (const auto& element : array) plist_array_append_item(node, peerOf(element));
  return node;
}

plist_t peerOf(const kvl::Dictionary& dictionary) {
  const plist_t node = plist_new_dict();
  for (const auto& [key, element] : dictionary) {
    plist_dict_set_item(node, std::string(key).c_str(), peerOf(element));
  }
  return node;
}

plist_t peerOf(const kvl::Value& value) {
  using enum kvl::Value::Kind;
  switch (value.kind()) {
    case boolean:
      return plist_new_bool(*value.boolean() ? 1 : 0);
    case integer:
      return plist_new_uint(static_cast<std::uint64_t>(*value.integer()));
    case real:
      return plist_new_real(*value.real());
    case date:
      return plist_new_date(static_cast<std::int32_t>(value.date()->secondsSinceReferenceDate()),
                            0);
    case string:
      return plist_new_string(std::string(*value.string()).c_str());
    case data:
      return plist_new_data(reinterpret_cast<const char*>(value.data()->data()),
                            value.data()->size());
    case array:
      return peerOf(*value.array());
    default:
      return peerOf(*value.dictionary());
  }
}

struct FreePeer {
  void operator()(void* node) const { plist_free(node); }
};

double peerTime(plist_t node) {
  const double start = cpuSeconds();
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_bin(node, &bytes, &size);
  benchmark::DoNotOptimize(bytes);
  plist_to_bin_free(bytes);
  return cpuSeconds() - start;
}

double subjectTime(const kvl::Value& document) {
  const double start = cpuSeconds();
  benchmark::DoNotOptimize(kvl::binaryPropertyListFromValue(document, nullptr));
  return cpuSeconds() - start;
}

std::int64_t sizeOf(const kvl::Value& document) {
  return static_cast<std::int64_t>(kvl::binaryPropertyListFromValue(document, nullptr)->size());
}

// times_peer: what writing the document costs in multiples of libplist's cost.
// peak_of_list: the most memory beyond the document itself, in multiples of the property list.
void writePropertyList(benchmark::State& state) {
  const kvl::Value document = documentOf(state.range(0));
  const std::unique_ptr<void, FreePeer> peer(peerOf(document));
  const std::int64_t size = sizeOf(document);
  const double peak = peakMemoryOf([&] { subjectTime(document); });
  const auto times =
      measure(state, [&] { return peerTime(peer.get()); }, [&] { return subjectTime(document); });
  state.SetBytesProcessed(state.iterations() * size);
  state.counters["list_bytes"] = static_cast<double>(size);
  state.counters["times_peer"] = times.subject / times.peer;
  state.counters["peak_of_list"] = peak / static_cast<double>(size);
}
BENCHMARK(writePropertyList)
    ->Arg(kSmall)
    ->Arg(kMiddle)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(writePropertyList)
    ->Arg(kHalf)
    ->Arg(kWhole)
    ->Iterations(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// growth: what a byte of the whole costs in multiples of what a byte of the half costs.
void growPropertyList(benchmark::State& state) {
  const kvl::Value half = documentOf(kHalf);
  const kvl::Value whole = documentOf(kWhole);
  const auto times =
      measure(state, [&] { return subjectTime(half); }, [&] { return subjectTime(whole); });
  const double sizes = static_cast<double>(sizeOf(whole)) / static_cast<double>(sizeOf(half));
  state.counters["growth"] = times.subject / times.peer / sizes;
}
BENCHMARK(growPropertyList)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kvlbench
