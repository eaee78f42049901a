// The body of a form with one large file, against one copy of its bytes into fresh memory.
#include "bench/Measurement.h"
#include "platform/core/LargeMemory.h"

#include <local/KVLExtensionsURLRequest.h>
#include <local/KVLInputFile.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace {

using kvlbench::cpuSeconds;

constexpr std::size_t kFileSize = 64 << 20;

enum Content : std::int64_t { bytes, letters };
enum Memory : std::int64_t { smallPages, largePages };

// Bytes as of a compressed file, or the characters that boundaries are made of.
kvl::Data makeContent(Content content) {
  constexpr std::string_view kLetters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+/";
  std::mt19937 generator(1);
  std::string text(kFileSize, '\0');
  for (char& character : text) {
    const auto number = generator();
    character = content == letters ? kLetters[number % kLetters.size()] : static_cast<char>(number);
  }
  return kvl::Data::adoptingText(std::move(text));
}

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

double copyTime(const kvl::Data& file, Memory memory) {
  const double start = cpuSeconds();
  const std::unique_ptr<void, Free> copy(std::malloc(file.size()));
  if (memory == largePages) kvl::core::preferLargePages(copy.get(), file.size());
  std::memcpy(copy.get(), file.data(), file.size());
  benchmark::DoNotOptimize(copy.get());
  benchmark::ClobberMemory();
  return cpuSeconds() - start;
}

kvl::Array inputsWith(const kvl::Data& file) {
  const std::shared_ptr<kvl::Object> object =
      KVLInputFile::newWithFilename("file", std::nullopt, file);
  return {kvl::Dictionary{{"name", "file"}, {"value", object}}};
}

double bodyTime(const kvl::Array& inputs) {
  kvl::URLRequest request("a");
  const double start = cpuSeconds();
  if (KVLExtensions::setHTTPBodyWithInputs(request, inputs)) std::abort();
  return cpuSeconds() - start;
}

// times_copied: what the body costs in multiples of the copy, in the pages that the system gives by
// itself or in large ones.
// memory_of_body: the most memory beyond the file itself, in multiples of the body.
void multipartBody(benchmark::State& state) {
  const auto file = makeContent(static_cast<Content>(state.range(0)));
  const auto memory = static_cast<Memory>(state.range(1));
  const auto inputs = inputsWith(file);
  const double peak = kvlbench::peakMemoryOf([&] { bodyTime(inputs); });
  const auto times = kvlbench::measure(
      state, [&] { return copyTime(file, memory); }, [&] { return bodyTime(inputs); });
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
  state.counters["times_copied"] = times.subject / times.peer;
  state.counters["memory_of_body"] = peak / static_cast<double>(kFileSize);
}
BENCHMARK(multipartBody)
    ->ArgNames({"letters", "large_pages"})
    ->ArgsProduct({{bytes, letters}, {smallPages, largePages}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
