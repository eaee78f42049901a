// Builds a document from the tokens of its text.
#pragma once

#include "platform/serialisation/JSONTokens.h"

#include <local/platform/Value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kvl::serialisation {

// Used once.
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

  bool unescape(std::string_view& string);
  bool isEnd(const char* end, Token token) const noexcept;
  bool replaceEntry(std::size_t first, const Builder::PendingEntry& entry) noexcept;
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
  std::string unescaped_;
  std::string_view problem_;
  std::size_t offset_ = 0;
};

}  // namespace kvl::serialisation
