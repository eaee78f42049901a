#include "platform/interface/images/PDFStructure.h"

#include "platform/core/ASCII.h"
#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/Limits.h"

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::images {
namespace {

constexpr std::string_view kEnd = "%%EOF";
constexpr std::size_t kEndReach = 1024;
constexpr std::string_view kBlanks{" \t\r\n\f\0", 6};
constexpr std::string_view kDelimiters = "/<>[]()%{}";
constexpr std::string_view kDigits = "0123456789";
constexpr std::size_t kLongestName = 16;
constexpr std::size_t kLongestNumber = 9;  // in digits
// How far behind its name a number may begin, and its digits at the most: the name and both fit
// into what two pieces share.
constexpr std::size_t kReach = 24;
constexpr std::size_t kMostDigits = 20;
// How far behind a number is looked for what makes it a reference.
constexpr std::size_t kLongReach = 128;
// More than any side may be: where nobody can tell which number it is.
constexpr std::uint64_t kUnclear = std::numeric_limits<std::uint64_t>::max();
constexpr std::string_view kStream = "stream";
constexpr std::uint64_t kShadingPattern = 2;
// What all streams of a file may be together.
constexpr std::size_t kMaximumUnpackedBytes = std::size_t{64} << 20;
// What each stream counts for, however little is in it.
constexpr std::size_t kBytesForStream = 1024;

// Bitmaps whose size only their own data tell; packings that nothing here looks into, under both
// their names; and what is encrypted.
constexpr std::array<std::string_view, 10> kRefusedNames{
    "JBIG2Decode",    "JPXDecode", "LZWDecode",       "LZW",    "ASCII85Decode", "A85",
    "ASCIIHexDecode", "AHx",       "RunLengthDecode", "Encrypt"};

// Takes the name that `text` starts with off it, with its escapes (#57 for W) resolved. Longer ones
// are cut.
std::string takeName(std::string_view& text) {
  std::string name;
  while (!text.empty() && name.size() < kLongestName) {
    const char next = text.front();
    const bool escaped = next == '#' && text.size() > 2 && ascii::hexDigit(text[1]) >= 0 &&
                         ascii::hexDigit(text[2]) >= 0;
    if (!escaped && (next <= ' ' || kDelimiters.find(next) != std::string_view::npos)) break;
    name += escaped ? static_cast<char>(ascii::hexDigit(text[1]) * 16 + ascii::hexDigit(text[2]))
                    : next;
    text.remove_prefix(escaped ? 3 : 1);
  }
  return name;
}

// Past what stands between words, blanks and comments, none when that is more than `reach`: each of
// many names in comments would otherwise look through all that follow.
std::optional<std::string_view> pastBlanks(std::string_view text, std::size_t reach) {
  auto near = text.substr(0, reach);
  const bool isAll = near.size() == text.size();
  near.remove_prefix(std::min(near.find_first_not_of(kBlanks), near.size()));
  while (near.starts_with('%')) {
    const auto end = near.find_first_of("\r\n");
    if (end == std::string_view::npos) break;
    near.remove_prefix(end);
    near.remove_prefix(std::min(near.find_first_not_of(kBlanks), near.size()));
  }
  if (!isAll && (near.empty() || near.starts_with('%'))) return std::nullopt;
  return text.substr(std::min(reach, text.size()) - near.size());
}

std::string_view takeDigits(std::string_view& text) {
  const auto digits = text.substr(0, text.find_first_not_of(kDigits));
  text.remove_prefix(digits.size());
  return digits;
}

// Whether what follows a number makes it the name of an object that holds the number, if that can
// be told. The rest may come with the next piece.
std::optional<bool> endsReference(std::string_view text) {
  auto next = pastBlanks(text, kLongReach);
  if (!next) return std::nullopt;
  if (takeDigits(*next).empty()) return false;
  next = pastBlanks(*next, kLongReach);
  if (!next) return std::nullopt;
  if (!next->starts_with('R')) return next->empty();
  const auto end = next->substr(1, 1);
  return end.empty() || kBlanks.find(end) != std::string_view::npos ||
         kDelimiters.find(end) != std::string_view::npos;
}

// The whole number that stands there itself; 0 when it stands elsewhere or is none.
std::uint64_t numberIn(std::string_view text) {
  const auto begin = pastBlanks(text, kReach);
  if (!begin) return kUnclear;
  text = *begin;
  if (text.starts_with('+')) text.remove_prefix(1);
  auto digits = takeDigits(text);
  if (digits.empty()) return 0;
  const auto isReference = endsReference(text);
  if (!isReference || digits.size() > kMostDigits) return kUnclear;
  if (*isReference) return 0;
  const bool isLong = digits.size() > kLongestNumber;
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  if (digits.empty() || digits.size() > kLongestNumber) return 0;
  const std::uint64_t number = std::stoul(std::string(digits));
  // With so many zeros in front only one that is too large is taken seriously.
  return isLong && number <= kMaximumImageSide ? 0 : number;
}

// Adds up what a file says, wherever it says it.
class Statements {
 public:
  // What stands openly: the dictionaries of streams, which are never packed.
  bool takeOpen(std::string_view text) {
    return takeEach(text, [this](std::string_view name, std::string_view rest) {
      return std::ranges::count(kRefusedNames, name) == 0 && takeSide(name, rest, true) &&
             (name != "PatternType" || numberIn(rest) == kShadingPattern);
    });
  }

  // What a stream holds: bitmaps within a page's description.
  bool takeStream(std::string_view text) {
    return takeEach(text, [this](std::string_view name, std::string_view rest) {
      return takeSide(name, rest, false);
    });
  }

 private:
  template <class Take>
  bool takeEach(std::string_view text, Take take) {
    for (auto slash = text.find('/'); slash != std::string_view::npos; slash = text.find('/')) {
      text.remove_prefix(slash + 1);
      const auto name = takeName(text);
      if (!take(name, text)) return false;
    }
    return true;
  }

  bool takeSide(std::string_view name, std::string_view rest, bool mustBeNumber) {
    const bool isWidth = name == "Width" || name == "W";
    if (!isWidth && name != "Height" && name != "H") return true;
    const auto side = numberIn(rest);
    // The short names mean other things elsewhere.
    if (side == 0) return !mustBeNumber || name.size() == 1;
    auto& longest = isWidth ? width_ : height_;
    longest = std::max(longest, side);
    return isDecodable(width_, height_);
  }

  std::uint64_t width_ = 1;
  std::uint64_t height_ = 1;
};

constexpr std::size_t kPieceSize = std::size_t{64} << 10;
constexpr std::size_t kOverlap = 64;

// Calls `take` with each piece of what `packed` (zlib's format, as far as it goes) unpacks to; a
// piece begins with the end of the one before, so that nothing short is cut in two. Ends early when
// `take` returns false, and then returns false too.
bool inflate(std::string_view packed, const std::function<bool(std::string_view piece)>& take) {
  const ObjectPtr<GZlibDecompressor> unpacker(
      g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB));
  std::string piece(kOverlap + kPieceSize, '\0');
  std::size_t kept = 0;
  auto result = G_CONVERTER_CONVERTED;
  while (result == G_CONVERTER_CONVERTED) {
    std::fill(piece.begin() + static_cast<std::ptrdiff_t>(kept), piece.end(), '\0');
    gsize taken = 0;
    gsize made = 0;
    result = g_converter_convert(G_CONVERTER(unpacker.get()), packed.data(), packed.size(),
                                 piece.data() + kept, kPieceSize, G_CONVERTER_NO_FLAGS, &taken,
                                 &made, nullptr);
    // What came before the fault is in the buffer, but nobody says how much it is.
    if (result == G_CONVERTER_ERROR) return take(piece);
    packed.remove_prefix(taken);
    const std::string_view text(piece.data(), kept + made);
    if (!take(text)) return false;
    const auto tail = text.substr(text.size() - std::min(text.size(), kOverlap));
    kept = tail.size();
    std::ranges::copy(tail, piece.begin());
  }
  return true;
}

bool streamsAreModest(std::string_view text, Statements& statements) {
  std::size_t unpacked = 0;
  for (auto found = text.find(kStream); found != std::string_view::npos;
       found = text.find(kStream)) {
    const bool isEnd = text.substr(0, found).ends_with("end");
    text.remove_prefix(found + kStream.size());
    if (isEnd) continue;
    const auto start = std::min(text.find_first_not_of("\r\n"), text.size());
    const bool modest = inflate(text.substr(start), [&](std::string_view part) {
      unpacked += part.size() + kBytesForStream;
      return unpacked <= kMaximumUnpackedBytes && statements.takeStream(part);
    });
    if (!modest) return false;
  }
  return true;
}

}  // namespace

bool isModestPDF(Span bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  Statements statements;
  const auto tail = text.substr(text.size() - std::min(text.size(), kEndReach));
  return tail.find(kEnd) != std::string_view::npos && statements.takeOpen(text) &&
         streamsAreModest(text, statements);
}

}  // namespace kvl::images
