// Any template and entries: rendering never fails, and entries apply one after the other.
#include "fuzz/Target.h"
#include "tests/support/LogCapture.h"

#include <local/KVLEncodingLocale.h>

#include <charconv>

namespace {

// The byte that ends a piece of the input; it is no part of UTF-8.
constexpr char kPieceEnd = '\xfe';
// Each entry may multiply the text by the length of a length of time.
constexpr int kMostEntries = 3;
constexpr std::size_t kLongestInput = 256;

std::string_view takePiece(std::string_view& input) {
  const auto piece = input.substr(0, input.find(kPieceEnd));
  input.remove_prefix(std::min(piece.size() + 1, input.size()));
  return piece;
}

kvl::Value numberOrText(std::string_view piece) {
  std::int64_t number = 0;
  const auto read = std::from_chars(piece.data(), piece.data() + piece.size(), number);
  return read.ptr == piece.data() + piece.size() && read.ec == std::errc() ? kvl::Value(number)
                                                                           : kvl::Value(piece);
}

kvl::Value takeEntry(std::string_view& input) {
  kvl::Dictionary entry;
  for (const char* key : {"find", "type", "date", "seconds"}) {
    const auto piece = takePiece(input);
    if (!piece.empty()) entry.set(key, numberOrText(piece));
  }
  return entry;
}

void checkTemplate(kvl::fuzz::Input bytes) {
  if (bytes.size() > kLongestInput) return;
  auto input = kvl::fuzz::textOf(bytes);
  const kvltest::LogCapture silent;
  const auto text = takePiece(input);
  kvl::Array entries;
  std::string oneByOne(text);
  for (int i = 0; i < kMostEntries && !input.empty(); ++i) {
    entries.append(takeEntry(input));
    oneByOne = KVLEncoding::stringWithLocales(oneByOne, kvl::Array{entries[entries.size() - 1]});
  }
  kvl::fuzz::require(KVLEncoding::stringWithLocales(text, entries) == oneByOne,
                     "entries apply one after the other");
}

const kvl::fuzz::Target templates("template", checkTemplate);

}  // namespace
