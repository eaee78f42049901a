#include <local/platform/Error.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kvl {

struct Error::Content {
  std::string domain;
  std::int64_t code;
  Dictionary userInfo;
};

namespace {

std::optional<std::string> textUnder(std::string_view key, const Dictionary& userInfo) {
  const auto text = userInfo[key].string();
  if (!text) return std::nullopt;
  return std::string(*text);
}

struct StatusText {
  std::int64_t code;
  std::string_view text;
};
constexpr std::array kStatusTexts{
    StatusText{fnfErr, "The file was not found."},
    StatusText{errSecParam, "A parameter is not valid."},
    StatusText{errSecInternalComponent, "A library has failed."},
    StatusText{errSecUnknownFormat, "The data is not in a format that is known."},
    StatusText{errSecNotAvailable, "There is no key store."},
    StatusText{errSecDuplicateItem, "The key store holds this item already."},
    StatusText{errSecItemNotFound, "The key store does not hold this item."},
    StatusText{errSecDataTooLarge, "The data is too large for the key store."},
    StatusText{errSecInteractionNotAllowed, "The key store is locked."},
    StatusText{errSecDecode, "The data could not be decoded."},
    StatusText{errSecInvalidKeyRef, "The key is not valid."},
};

// Of a status of the operating system's security services; empty for others.
std::string statusText(std::int64_t code) {
  const auto* const known = std::ranges::find(kStatusTexts, code, &StatusText::code);
  return known == kStatusTexts.end() ? std::string() : std::string(known->text);
}

// Statuses stand in the POSIX domain, too, where the system's own codes are above 0.
std::string systemText(std::int64_t code) {
  if (auto text = statusText(code); !text.empty()) return text;
  if (code == kTimedOutPOSIXCode) code = ETIMEDOUT;
  if (code < 0 || code > std::numeric_limits<int>::max()) {
    return "Unknown error " + std::to_string(code);
  }
  std::array<char, 256> buffer{};
  return strerror_r(static_cast<int>(code), buffer.data(), buffer.size());
}

}  // namespace

Error::Error(std::string_view domain, std::int64_t code, const Dictionary& userInfo)
    : content_(std::make_shared<const Content>(Content{std::string(domain), code, userInfo})) {}

const std::string& Error::domain() const noexcept {
  return content_->domain;
}
std::int64_t Error::code() const noexcept {
  return content_->code;
}
const Dictionary& Error::userInfo() const noexcept {
  return content_->userInfo;
}

bool Error::is(std::string_view domain, std::int64_t code) const noexcept {
  return content_->code == code && content_->domain == domain;
}

std::optional<std::string> Error::localizedFailureReason() const {
  if (auto reason = textUnder(NSLocalizedFailureReasonErrorKey, userInfo())) return reason;
  if (domain() == NSPOSIXErrorDomain) return systemText(code());
  return std::nullopt;
}

std::string Error::localizedDescription() const {
  if (auto text = textUnder(NSLocalizedDescriptionKey, userInfo())) return *text;
  if (auto reason = localizedFailureReason()) {
    return "The operation couldn't be completed. " + *reason;
  }
  if (domain() == NSOSStatusErrorDomain) {
    const auto text = statusText(code());
    if (!text.empty()) return "The operation couldn't be completed. " + text;
  }
  return "The operation couldn't be completed. (" + domain() + " error " + std::to_string(code()) +
         ".)";
}

std::string Error::description() const {
  std::string text = "Error Domain=" + domain() + " Code=" + std::to_string(code()) + " \"" +
                     localizedDescription() + "\"";
  if (!userInfo().empty()) text += " UserInfo=" + userInfo().description();
  return text;
}

bool operator==(const Error& a, const Error& b) noexcept {
  return a.content_ == b.content_ || (a.is(b.domain(), b.code()) && a.userInfo() == b.userInfo());
}

}  // namespace kvl
