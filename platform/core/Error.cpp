#include <local/platform/Error.h>

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

std::string systemText(std::int64_t code) {
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
