// Does one thing so many times, for a count of its instructions: `event`, `read` and `write`.
#include "bench/MenuDocument.h"
#include "eventstream/EventStreamParser.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kDocumentSize = 50'000;
constexpr std::size_t kEventsOfChunk = 500;

// Events of 100 bytes, 500 of them in a chunk.
bool readEvents(int times) {
  std::string chunk;
  for (std::size_t i = 0; i < kEventsOfChunk; ++i)
    chunk += "event: update\nid: " + std::to_string(1'000'000 + i) +
             "\ndata: " + std::string(66, 'x') + "\n\n";
  kvl::eventstream::EventStreamParser parser;
  std::size_t count = 0;
  for (int i = 0; i < times; ++i) count += parser.read(kvl::Data::fromText(chunk)).size();
  return count == kEventsOfChunk * static_cast<std::size_t>(times);
}

bool readDocuments(int times) {
  const auto text = kvl::Data::adoptingText(kvlbench::menuDocument(kDocumentSize));
  bool isGood = true;
  for (int i = 0; i < times; ++i) isGood = isGood && kvl::valueFromJSON(text, nullptr).has_value();
  return isGood;
}

bool writeDocuments(int times) {
  const auto text = kvl::Data::adoptingText(kvlbench::menuDocument(kDocumentSize));
  const auto document = kvl::valueFromJSON(text, nullptr);
  bool isGood = document.has_value();
  for (int i = 0; i < times; ++i)
    isGood = isGood && kvl::JSONFromValue(*document, nullptr).has_value();
  return isGood;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  const std::string_view kind = arguments[1];
  const int times = std::atoi(arguments[2]);
  const auto work = kind == "event" ? readEvents : kind == "read" ? readDocuments : writeDocuments;
  return work(times) ? EXIT_SUCCESS : EXIT_FAILURE;
}
