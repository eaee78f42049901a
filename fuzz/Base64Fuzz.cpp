// Any bytes: as base64 they are what another library writes, and read back as they were. Any text:
// it is base64 exactly when the grammar says so, and means what the other library reads. Hosts read
// such texts only as the framework writes them.
#include "fuzz/Expression.h"
#include "fuzz/Target.h"
#include "notary/Base64Lines.h"
#include "platform/security/PEMSequence.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

namespace {

using kvl::fuzz::require;

constexpr std::size_t kLineSize = 64;

std::string written(kvl::fuzz::Input bytes) {
  const std::unique_ptr<char, decltype(&g_free)> text(g_base64_encode(bytes.data(), bytes.size()),
                                                      g_free);
  return text.get();
}

kvl::Bytes readText(const std::string& text) {
  gsize size = 0;
  const std::unique_ptr<guchar, decltype(&g_free)> bytes(g_base64_decode(text.c_str(), &size),
                                                         g_free);
  return {bytes.get(), bytes.get() + size};
}

void checkLines(const std::string& lines, std::string expected) {
  for (std::size_t end = kLineSize; end < expected.size(); end += kLineSize + 2)
    expected.insert(end, "\r\n");
  require(lines == expected, "lines have 64 characters, and none ends with a line end");
}

void checkStrict(const std::string& text, const std::optional<kvl::Bytes>& bytes) {
  const auto data = kvl::dataFromBase64(text);
  require(data.has_value() == (bytes && kvl::base64(*bytes) == text),
          "exactly what is written is read");
  require(!data || std::ranges::equal(data->bytes(), *bytes), "both read the same");
}

void checkBase64(kvl::fuzz::Input input) {
  const auto text = written(input);
  require(kvl::base64(input) == text, "both write the same");
  require(kvl::dataFromBase64(text) == kvl::Data(kvl::Bytes(input.begin(), input.end())),
          "what is written reads back as the bytes");
  const auto lines = kvl::notary::base64Lines(input);
  checkLines(lines, text);
  require(kvl::security::decodeBase64(lines) == kvl::Bytes(input.begin(), input.end()),
          "lines read back as the bytes");

  static const kvl::fuzz::Expression grammar(
      "(?:[A-Za-z0-9+/]{4})*(?:[A-Za-z0-9+/]{3}=|[A-Za-z0-9+/]{2}==)?");
  std::string dense(kvl::fuzz::textOf(input));
  std::erase_if(dense, [](char c) {
    return std::string_view(" \t\r\n\v\f").find(c) != std::string_view::npos;
  });
  const auto bytes = kvl::security::decodeBase64(kvl::fuzz::textOf(input));
  require(bytes.has_value() == grammar.matches(dense), "the grammar says what is base64");
  require(!bytes || *bytes == readText(dense), "both read the same");
  checkStrict(std::string(kvl::fuzz::textOf(input)), bytes);
}

const kvl::fuzz::Target base64("base64", checkBase64);

}  // namespace
