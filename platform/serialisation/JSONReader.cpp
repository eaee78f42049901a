// Reads JSON: builds a document from the tokens that `JSONWorkspace` finds.
#include "platform/serialisation/JSONReader.h"

#include "platform/serialisation/JSONScalars.h"
#include "platform/serialisation/JSONTokens.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>

namespace kvl {
namespace {

using serialisation::JSONNumberReader;
using serialisation::JSONStack;
using serialisation::JSONWorkspace;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kTruncated = "the text ends within a container";

// A container's element takes two tokens, itself and what follows it, and 16 bytes; an entry takes
// four tokens and 32 bytes.
constexpr std::size_t kBytesPerToken = 8;

bool isWhiteSpace(char character) noexcept {
  return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

// One of 64 bits. Different keys have different ones more often than not.
std::uint64_t signature(std::string_view key) noexcept {
  if (key.empty()) return 1;
  const auto first = static_cast<unsigned char>(key.front());
  const auto last = static_cast<unsigned char>(key.back());
  return std::uint64_t{1} << ((key.size() * 7 + first * 5U + last * 3U) & 63);
}

// Part by part, as they have just been written: what is read in one piece that was written in two
// has to wait for the cache.
void copyParts(const detail::ValueCell& from, detail::ValueCell& to) noexcept {
  to.head = from.head;
  to.payload.integer = from.payload.integer;
}

// Builds a document from the tokens of its text. Made by `parseText` for one document.
class JSONParser {
 public:
  // `tokens` are those of `text`, at least one, in the workspace. The text is a part of `owner`,
  // or a copy of one that ends with a NUL: then it must begin with a token that is no string and
  // no container.
  JSONParser(const Data& owner, std::string_view text, std::span<const std::uint32_t> tokens,
             JSONWorkspace& workspace);

  // The document, or none: then the problem and the offset say what is wrong where.
  std::optional<Value> parse();

  [[nodiscard]] std::string_view problem() const noexcept { return problem_; }
  [[nodiscard]] std::size_t offset() const noexcept { return offset_; }

 private:
  using Builder = detail::DocumentBuilder;
  using Cell = Builder::Cell;
  // The position of a token among all of them. Functions that read take the token where they begin
  // and give the one behind what they read, or none after a failure.
  using Token = const std::uint32_t*;

  [[nodiscard]] char character(Token token) const noexcept { return text_[*token]; }
  Token fail(Token token, std::string_view problem) noexcept;

  Token parseValue(Token token, Cell& value);
  Token parseArray(Token token, Cell& value);
  template <class ParseContent>
  Token parseContainer(Token token, ParseContent parseContent);
  Token parseElements(Token token, Cell& value);
  Token parseDictionary(Token token, Cell& value);
  Token parseEntries(Token token, Cell& value);
  Token parseKey(Token token, std::string_view& key);
  Token parseString(Token token, std::string_view& string);
  Token parseNumber(Token token, Cell& value);
  Token parseWord(Token token, std::string_view word) noexcept;
  // What follows an element: a comma, or the end of the container.
  Token parseSeparator(Token token, char closer, bool& isLast);

  std::string_view unescape(std::string_view string);
  bool isEnd(const char* end, Token token) const noexcept;
  bool replaceEntry(std::size_t first, std::string_view key, const Cell& value) noexcept;
  [[nodiscard]] bool isTruncated() const noexcept;

  const char* const text_;
  const Token firstToken_;
  const Token lastToken_;
  // No backslash stands before this one, from the string on that was read last.
  const char* nextBackslash_;
  Builder builder_;
  JSONStack<Cell>& elements_;
  JSONStack<Builder::PendingEntry>& entries_;
  std::size_t depth_ = 0;
  std::string_view problem_;
  std::size_t offset_ = 0;
};

JSONParser::JSONParser(const Data& owner, std::string_view text,
                       std::span<const std::uint32_t> tokens, JSONWorkspace& workspace)
    : text_(text.data()),
      firstToken_(tokens.data()),
      lastToken_(&tokens.back()),
      nextBackslash_(text.data()),
      builder_(owner, tokens.size() * kBytesPerToken),
      elements_(workspace.elements),
      entries_(workspace.entries) {
  elements_.shrink(0);
  entries_.shrink(0);
}

JSONParser::Token JSONParser::fail(Token token, std::string_view problem) noexcept {
  problem_ = problem;
  offset_ = *token;
  return nullptr;
}

// With a closing bracket at the very end, no other token has none behind it.
bool JSONParser::isTruncated() const noexcept {
  const char first = character(firstToken_);
  const char last = character(lastToken_);
  return (first == '[' || first == '{') && last != ']' && last != '}';
}

std::optional<Value> JSONParser::parse() {
  if (isTruncated()) {
    fail(lastToken_, kTruncated);
    return std::nullopt;
  }
  Cell root{};
  const Token end = parseValue(firstToken_, root);
  if (end == nullptr) return std::nullopt;
  if (end <= lastToken_) {
    fail(end, "something follows the document");
    return std::nullopt;
  }
  return builder_.finish(root);
}

[[gnu::always_inline]] inline JSONParser::Token JSONParser::parseValue(Token token, Cell& value) {
  switch (character(token)) {
    case '"': {
      std::string_view string;
      token = parseString(token, string);
      value = builder_.string(string);
      return token;
    }
    case '{':
      return parseDictionary(token, value);
    case '[':
      return parseArray(token, value);
    case 't':
      value = Builder::boolean(true);
      return parseWord(token, "true");
    case 'f':
      value = Builder::boolean(false);
      return parseWord(token, "false");
    case 'n':
      value = Builder::null();
      return parseWord(token, "null");
    default:
      return parseNumber(token, value);
  }
}

// The closing quote is the last character before the next token but for white space.
[[gnu::always_inline]] inline JSONParser::Token JSONParser::parseString(Token token,
                                                                        std::string_view& string) {
  const char* const first = text_ + token[0] + 1;
  const char* last = text_ + token[1] - 1;
  while (*last != '"') --last;
  string = {first, last};
  if (nextBackslash_ < last) {
    string = unescape(string);
    if (string.data() == nullptr) return fail(token, "an escape is malformed");
  }
  return token + 1;
}

// The string without its escapes, or one without a place.
std::string_view JSONParser::unescape(std::string_view string) {
  if (nextBackslash_ < string.begin()) {
    const char* const textEnd = text_ + lastToken_[1];
    const auto size = static_cast<std::size_t>(textEnd - string.begin());
    const void* found = std::memchr(string.begin(), '\\', size);
    nextBackslash_ = found != nullptr ? static_cast<const char*>(found) : textEnd;
  }
  if (nextBackslash_ >= string.end()) return string;
  char* const kept = builder_.allocateText(string.size());
  const char* const end = serialisation::writeUnescaped(kept, string);
  if (end == nullptr) return {};
  nextBackslash_ = string.end();
  return {kept, end};
}

// Whether only white space stands between `end` and the next token.
inline bool JSONParser::isEnd(const char* end, Token token) const noexcept {
  return std::all_of(end, text_ + token[1], isWhiteSpace);
}

JSONParser::Token JSONParser::parseNumber(Token token, Cell& value) {
  using enum JSONNumberReader::Result;
  JSONNumberReader number;
  const auto result = number.read(text_ + *token);
  if (result == outOfRange) return fail(token, "a number is out of range");
  if (result == malformed || !isEnd(number.end(), token))
    return fail(token, "a value is malformed");
  value = result == integer ? Builder::integer(number.integer()) : Builder::real(number.real());
  return token + 1;
}

inline JSONParser::Token JSONParser::parseWord(Token token, std::string_view word) noexcept {
  const char* const begin = text_ + token[0];
  const std::string_view found(begin, text_ + token[1]);
  if (!found.starts_with(word) || !isEnd(begin + word.size(), token))
    return fail(token, "a value is malformed");
  return token + 1;
}

inline JSONParser::Token JSONParser::parseSeparator(Token token, char closer, bool& isLast) {
  isLast = character(token) == closer;
  if (isLast || character(token) == ',') return token + 1;
  return fail(token, "a comma or the end of a container is missing");
}

JSONParser::Token JSONParser::parseArray(Token token, Cell& value) {
  return parseContainer(token, [&](Token first) {
    if (character(first) != ']') return parseElements(first, value);
    value = builder_.array({});
    return first + 1;
  });
}

JSONParser::Token JSONParser::parseDictionary(Token token, Cell& value) {
  return parseContainer(token, [&](Token first) {
    if (character(first) != '}') return parseEntries(first, value);
    value = builder_.dictionary({});
    return first + 1;
  });
}

// `parseContent` begins behind the opening bracket.
template <class ParseContent>
inline JSONParser::Token JSONParser::parseContainer(Token token, ParseContent parseContent) {
  if (depth_ == kMaximumJSONDepth) return fail(token, "containers are nested too deeply");
  ++depth_;
  const Token end = parseContent(token + 1);
  --depth_;
  if (depth_ > 0 && end > lastToken_) return fail(lastToken_, kTruncated);
  return end;
}

inline JSONParser::Token JSONParser::parseElements(Token token, Cell& value) {
  const std::size_t first = elements_.size();
  for (bool isLast = false; !isLast;) {
    Cell element{};
    token = parseValue(token, element);
    if (token == nullptr) return nullptr;
    copyParts(element, elements_.push());
    token = parseSeparator(token, ']', isLast);
    if (token == nullptr) return nullptr;
  }
  value = builder_.array(elements_.from(first));
  elements_.shrink(first);
  return token;
}

inline JSONParser::Token JSONParser::parseEntries(Token token, Cell& value) {
  const std::size_t first = entries_.size();
  std::uint64_t seen = 0;
  for (bool isLast = false; !isLast;) {
    std::string_view key;
    token = parseKey(token, key);
    if (token == nullptr) return nullptr;
    Cell content{};
    token = parseValue(token, content);
    if (token == nullptr) return nullptr;
    const std::uint64_t bit = signature(key);
    if ((seen & bit) == 0 || !replaceEntry(first, key, content)) {
      Builder::PendingEntry& entry = entries_.push();
      entry.key = key;
      copyParts(content, entry.value);
    }
    seen |= bit;
    token = parseSeparator(token, '}', isLast);
    if (token == nullptr) return nullptr;
  }
  value = builder_.dictionary(entries_.from(first));
  entries_.shrink(first);
  return token;
}

inline JSONParser::Token JSONParser::parseKey(Token token, std::string_view& key) {
  if (character(token) != '"') return fail(token, "a key is missing");
  token = parseString(token, key);
  if (token == nullptr) return nullptr;
  if (character(token) != ':') return fail(token, "a colon is missing");
  return token + 1;
}

// Whether there is an entry of that key already, which has the new value then. A large
// dictionary's repeated keys are found when it is built.
bool JSONParser::replaceEntry(std::size_t first, std::string_view key, const Cell& value) noexcept {
  const auto earlier = entries_.from(first);
  if (earlier.size() > detail::kUnindexedSize) return false;
  const auto found = std::ranges::find(earlier, key, &Builder::PendingEntry::key);
  if (found == earlier.end()) return false;
  found->value = value;
  return true;
}

// A number or word at top level is read from a copy, which ends with a character of another kind.
bool needsCopy(std::string_view text, std::span<const std::uint32_t> tokens) {
  const char first = text[tokens.front()];
  return first != '[' && first != '{' && first != '"';
}

// Whether the tokens stand for more than `maximum` keys and values.
bool areTooMany(std::string_view text, std::span<const std::uint32_t> tokens, std::size_t maximum) {
  if (tokens.size() <= maximum) return false;
  const auto begin = [text](std::uint32_t token) {
    const char first = text[token];
    return first != ',' && first != ':' && first != ']' && first != '}';
  };
  return static_cast<std::size_t>(std::ranges::count_if(tokens, begin)) > maximum;
}

std::optional<Value> parseText(const Data& owner, std::string_view text, std::size_t maximumCells,
                               JSONWorkspace& workspace, std::string& problem) {
  const auto tokens = workspace.tokensOf(text, problem);
  if (tokens.empty()) return std::nullopt;
  if (areTooMany(text, tokens, maximumCells)) {
    problem = "the document holds more than " + std::to_string(maximumCells) + " values";
    return std::nullopt;
  }
  std::string copy;
  if (needsCopy(text, tokens)) text = copy = text;
  JSONParser parser(owner, text, tokens, workspace);
  auto value = parser.parse();
  if (!value) {
    const auto offset = owner.size() - text.size() + parser.offset();
    problem = std::string(parser.problem()) + " at byte " + std::to_string(offset);
  }
  return value;
}

std::optional<Value> readDocument(const Data& owner, std::size_t maximumCells,
                                  std::string& problem) {
  std::string_view text = owner.text();
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (text.size() > kMaximumJSONSize) {
    problem = "the text is too large";
    return std::nullopt;
  }
  auto workspace = JSONWorkspace::take();
  auto value = parseText(owner, text, maximumCells, *workspace, problem);
  JSONWorkspace::leave(std::move(workspace));
  return value;
}

std::optional<Value> unreadable(std::string_view problem, std::optional<Error>* error) {
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListReadCorruptError,
                          {{NSDebugDescriptionErrorKey, problem}}));
  return std::nullopt;
}

}  // namespace

std::optional<Value> valueFromJSON(const Data& text, std::optional<Error>* error,
                                   std::size_t maximumCells) {
  std::string problem;
  try {
    if (auto value = readDocument(text, maximumCells, problem)) {
      storeError(error, std::nullopt);
      return value;
    }
  } catch (const std::bad_alloc&) {
    problem = "out of memory";
  }
  return unreadable(problem, error);
}

}  // namespace kvl
