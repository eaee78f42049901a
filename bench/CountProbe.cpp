// Does one thing so many times, for a count of its instructions: `event`, `read`, `write`,
// `text` and `menu`.
#include "bench/MenuDocument.h"
#include "eventstream/EventStreamParser.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"

#include <local/KVLEncoding.h>
#include <local/KVLEncodingMenus.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kDocumentSize = 50'000;
constexpr std::size_t kEventsOfChunk = 500;
constexpr std::size_t kItemsOfMenu = 100;

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

bool takeTexts(int times) {
  const auto text = kvl::Data::fromText(std::string_view(R"({"id":1,"text":"Open"})"));
  const auto document = kvl::valueFromJSON(text, nullptr)->dictionary();
  std::size_t length = 0;
  for (int i = 0; i < times; ++i)
    length += KVLEncoding::stringFromDictionary(document, "text")->text().size();
  return length == 4 * static_cast<std::size_t>(times);
}

bool buildMenus(int times) {
  const kvl::Dictionary item{{"type", "item"}, {"text", "Synchronise with the service"},
                             {"updates", 3},   {"tooltip", "Sends what has changed"},
                             {"state", "on"},  {"form", kvl::Dictionary{{"id", "synchronise"}}}};
  const kvl::Array made(std::vector<kvl::Value>(kItemsOfMenu, item));
  const auto text = kvl::JSONFromValue(made, nullptr);
  const auto items = text ? kvl::valueFromJSON(*text, nullptr) : std::nullopt;
  std::size_t count = 0;
  for (int i = 0; items && i < times; ++i) {
    kvl::Menu menu;
    KVLEncoding::addMenuItems(*items, menu, nullptr, nullptr, {});
    count += menu.itemCount();
  }
  return count == kItemsOfMenu * static_cast<std::size_t>(times);
}

using Kind = std::pair<std::string_view, bool (*)(int times)>;
constexpr Kind kKinds[] = {{"event", readEvents},
                           {"read", readDocuments},
                           {"write", writeDocuments},
                           {"text", takeTexts},
                           {"menu", buildMenus}};

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  for (const auto& [name, work] : kKinds)
    if (name == arguments[1]) return work(std::atoi(arguments[2])) ? EXIT_SUCCESS : EXIT_FAILURE;
  return EXIT_FAILURE;
}
