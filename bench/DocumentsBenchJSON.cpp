// Reading and writing JSON documents, beside other libraries on the same documents in the same run.
#include "bench/JSONPeer.h"
#include "bench/Measurement.h"
#include "bench/MenuDocument.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace kvlbench {
namespace {

constexpr std::int64_t kTiny = 2'000;
constexpr std::int64_t kSmall = 50'000;
constexpr std::int64_t kLarge = 5'000'000;
constexpr std::size_t kPadding = 64;

template <class Work>
double timeOf(Work work) {
  const double start = cpuSeconds();
  work();
  return cpuSeconds() - start;
}

std::string paddedDocument(const benchmark::State& state) {
  std::string text = menuDocument(static_cast<std::size_t>(state.range(0)));
  text.reserve(text.size() + kPadding);
  return text;
}

kvl::Value valueOf(const std::string& text) {
  return *kvl::valueFromJSON(kvl::Data::fromText(text), nullptr);
}

void report(benchmark::State& state, const Times& times, std::size_t size) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
  state.counters["times_peer"] = times.subject / times.peer;
}

// times_peer: what reading and dropping a document costs in multiples of the peer's cost.
void read(benchmark::State& state, JSONPeer& peer) {
  const std::string text = paddedDocument(state);
  const kvl::Data data = kvl::Data::fromText(text);
  const auto readPeer = [&] { peer.readAndDrop(text); };
  const auto readSubject = [&] { benchmark::DoNotOptimize(kvl::valueFromJSON(data, nullptr)); };
  readPeer();
  readSubject();
  report(state,
         measure(
             state, [&] { return timeOf(readPeer); }, [&] { return timeOf(readSubject); }),
         text.size());
}

std::size_t sizeOf(const kvl::Value& value) {
  using enum kvl::Value::Kind;
  switch (value.kind()) {
    case string:
      return value.string()->size();
    case boolean:
    case integer:
    case real:
      return static_cast<std::size_t>(*value.integer());
    case array:
      return value.array()->size();
    case dictionary:
      return value.dictionary()->size();
    default:
      return 0;
  }
}

std::size_t lookUpItems(const kvl::Array& items) {
  std::size_t sum = 0;
  for (const kvl::Value& value : items) {
    const auto item = *value.dictionary();
    for (const char* key : kMenuItemKeys) {
      if (const kvl::Value* found = item.find(key)) sum += sizeOf(*found);
    }
    if (const kvl::Value* children = item.find("items")) sum += lookUpItems(*children->array());
  }
  return sum;
}

std::size_t lookUpAll(const kvl::Value& document) {
  return lookUpItems(*(*document.dictionary())["items"].array());
}

// times_peer: what looking up every key of every item costs in multiples of the peer's cost.
void lookUp(benchmark::State& state, JSONTreePeer& peer) {
  const std::string text = paddedDocument(state);
  const kvl::Value document = valueOf(text);
  peer.load(text);
  if (lookUpAll(document) != peer.lookUpAll()) state.SkipWithError("the sums differ");
  report(state,
         measure(
             state, [&] { return timeOf([&] { benchmark::DoNotOptimize(peer.lookUpAll()); }); },
             [&] { return timeOf([&] { benchmark::DoNotOptimize(lookUpAll(document)); }); }),
         text.size());
}

// times_peer: what writing a document costs in multiples of the peer's cost.
template <class Write>
void compareWriting(benchmark::State& state, JSONTreePeer& peer, Write write) {
  const std::string text = paddedDocument(state);
  const kvl::Value document = valueOf(text);
  const auto writeSubject = [&] { return write(document, nullptr)->size(); };
  peer.load(text);
  if (writeSubject() != peer.write() && peer.spellsNumbersAlike())
    state.SkipWithError("the texts differ");
  report(state,
         measure(
             state, [&] { return timeOf([&] { benchmark::DoNotOptimize(peer.write()); }); },
             [&] { return timeOf([&] { benchmark::DoNotOptimize(writeSubject()); }); }),
         text.size());
}

void write(benchmark::State& state, JSONTreePeer& peer) {
  compareWriting(state, peer, kvl::JSONFromValue);
}

// What nobody has looked at, as hosts submit it: the peer does not look.
void submit(benchmark::State& state, JSONTreePeer& peer) {
  compareWriting(state, peer, kvl::JSONIfValid);
}

template <class Peer>
void add(const std::string& name, std::unique_ptr<Peer> (*make)(),
         void (*run)(benchmark::State&, Peer&)) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [make, run](benchmark::State& state) {
                                 const auto peer = make();
                                 run(state, *peer);
                               })
      ->Arg(kTiny)
      ->Arg(kSmall)
      ->Arg(kLarge)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

bool compareReading(const std::string& name, std::unique_ptr<JSONPeer> (*make)()) {
  add("readJSONBeside" + name, make, read);
  return true;
}

bool compareAll(const std::string& name, std::unique_ptr<JSONTreePeer> (*make)()) {
  add<JSONTreePeer>("readJSONBeside" + name, make,
                    [](benchmark::State& state, JSONTreePeer& peer) { read(state, peer); });
  add("lookUpBeside" + name, make, lookUp);
  add("writeJSONBeside" + name, make, write);
  add("submitJSONBeside" + name, make, submit);
  return true;
}

}  // namespace kvlbench
