#include "platform/security/PEMSequence.h"

#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <string>

namespace kvl::security {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kLineEnds = "\r\n";
constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";

std::string_view trimmedRight(std::string_view line) {
  const std::size_t last = line.find_last_not_of(" \t");
  return line.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// The label of a boundary line that starts with `prefix`, or absent for any other line.
std::optional<std::string_view> labelOf(std::string_view line, std::string_view prefix) {
  line = trimmedRight(line);
  if (!line.starts_with(prefix) || !line.ends_with(kDashes)) return std::nullopt;
  if (line.size() < prefix.size() + kDashes.size()) return std::nullopt;
  return line.substr(prefix.size(), line.size() - prefix.size() - kDashes.size());
}

// Collects blocks from the lines of one text.
class Splitter {
 public:
  explicit Splitter(std::string_view text) : text_(text) {}

  std::vector<PEMBlock> split() {
    for (std::size_t start = 0; start < text_.size();) {
      const std::size_t end = std::min(text_.find_first_of(kLineEnds, start), text_.size());
      readLine(start, end);
      start = end + 1;
    }
    if (open_) close(text_.size(), false);
    return std::move(blocks_);
  }

 private:
  void readLine(std::size_t start, std::size_t end) {
    const std::string_view line = text_.substr(start, end - start);
    if (const auto begun = labelOf(line, kBegin)) {
      if (open_) close(start, false);
      open_ = true;
      label_ = *begun;
      bodyStart_ = end;
    } else if (const auto ended = labelOf(line, kEnd); open_ && ended) {
      close(start, *ended == label_);
    }
  }

  void close(std::size_t bodyEnd, bool complete) {
    blocks_.push_back({label_, text_.substr(bodyStart_, bodyEnd - bodyStart_), complete});
    open_ = false;
  }

  std::string_view text_;
  std::vector<PEMBlock> blocks_;
  bool open_ = false;
  std::string_view label_;
  std::size_t bodyStart_ = 0;
};

std::string withoutWhiteSpace(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::copy_if(text.begin(), text.end(), std::back_inserter(result),
               [](char c) { return kWhiteSpace.find(c) == std::string_view::npos; });
  return result;
}

std::size_t paddingOf(std::string_view base64) {
  return base64.size() - (base64.find_last_not_of('=') + 1);
}

}  // namespace

std::vector<PEMBlock> splitPEM(std::string_view text) {
  return Splitter(text).split();
}

std::optional<Bytes> decodeBase64(std::string_view text) {
  const std::string base64 = withoutWhiteSpace(text);
  const std::size_t padding = paddingOf(base64);
  if (base64.size() % 4 != 0 || padding > 2 || base64.size() > INT_MAX) return std::nullopt;
  // OpenSSL takes padding in mid-text for zero bits, and a hyphen for the end of the text.
  if (base64.find_first_of("=-") < base64.size() - padding) return std::nullopt;
  Bytes bytes(base64.size() / 4 * 3);
  const int size =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(base64.data()),
                      static_cast<int>(base64.size()));
  if (size < 0 || static_cast<std::size_t>(size) != bytes.size()) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

}  // namespace kvl::security
