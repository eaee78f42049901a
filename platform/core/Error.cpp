#include "platform/core/Sentence.h"
#include "platform/core/SystemText.h"

#include <local/platform/Error.h>

#include <algorithm>
#include <array>

namespace kvl {

struct Error::Content {
  std::string domain;
  std::int64_t code;
  Dictionary userInfo;
  core::Sentence sentence = {};
};

namespace {

constexpr std::string_view kFailed = translatable("The operation couldn't be completed. %@");
constexpr std::string_view kFailedNumber =
    translatable("The operation couldn't be completed. (%@ error %@.)");

// How a text is said: as it stands, for the log, or in the user's language.
using Say = std::string (*)(std::string_view text);

std::string inEnglish(std::string_view text) {
  return std::string(text);
}
std::string inUsersLanguage(std::string_view text) {
  return translated(text);
}

// Others' errors may happen to have a text that is also one of ours.
bool isOfTheFramework(std::string_view domain) {
  constexpr std::array kDomains{NSURLErrorDomain, NSCocoaErrorDomain, NSPOSIXErrorDomain,
                                NSOSStatusErrorDomain, std::string_view("kvlocal")};
  return domain.starts_with("korvale.vandrel.") || std::ranges::count(kDomains, domain) != 0;
}

std::optional<std::string> textUnder(std::string_view key, const Dictionary& userInfo) {
  const auto text = userInfo[key].string();
  if (!text) return std::nullopt;
  return std::string(*text);
}

std::optional<std::string> failureReason(const Error& error, Say say) {
  if (auto reason = textUnder(NSLocalizedFailureReasonErrorKey, error.userInfo()))
    return isOfTheFramework(error.domain()) ? say(*reason) : reason;
  if (error.domain() == NSPOSIXErrorDomain) return say(core::systemText(error.code()));
  return std::nullopt;
}

std::string descriptionOf(const Error& error, Say say) {
  if (const auto text = textUnder(NSLocalizedDescriptionKey, error.userInfo()))
    return isOfTheFramework(error.domain()) ? say(*text) : *text;
  if (auto reason = failureReason(error, say)) return fillPattern(say(kFailed), {*reason});
  if (error.domain() == NSOSStatusErrorDomain) {
    const auto text = core::statusText(error.code());
    if (!text.empty()) return fillPattern(say(kFailed), {say(text)});
  }
  return fillPattern(say(kFailedNumber), {error.domain(), std::to_string(error.code())});
}

}  // namespace

Error::Error(std::string_view domain, std::int64_t code, const Dictionary& userInfo)
    : content_(std::make_shared<const Content>(Content{std::string(domain), code, userInfo})) {}

Error::Error(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

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
  return failureReason(*this, inUsersLanguage);
}

std::string Error::localizedDescription() const {
  if (!content_->sentence.pattern.empty()) return content_->sentence.localised();
  return descriptionOf(*this, inUsersLanguage);
}

std::string Error::description() const {
  std::string text = "Error Domain=" + domain() + " Code=" + std::to_string(code()) + " \"" +
                     descriptionOf(*this, inEnglish) + "\"";
  if (!userInfo().empty()) text += " UserInfo=" + userInfo().description();
  return text;
}

bool operator==(const Error& a, const Error& b) noexcept {
  return a.content_ == b.content_ || (a.is(b.domain(), b.code()) && a.userInfo() == b.userInfo());
}

Error core::errorWithSentence(std::string_view domain, std::int64_t code, const Sentence& sentence,
                              const Dictionary& userInfo) {
  Dictionary info{{NSLocalizedDescriptionKey, sentence.english()}};
  for (const auto& [key, value] : userInfo) info.set(key, value);
  return Error(std::make_shared<const Error::Content>(
      Error::Content{std::string(domain), code, info, sentence}));
}

}  // namespace kvl
