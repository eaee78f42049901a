#include "tools/kvlocal/Describe.h"

#include "tools/kvlocal/JSON.h"

#include <local/KVLEncodingLocale.h>
#include <local/platform/PrintableText.h>

#include <cstdint>
#include <string_view>

namespace kvlocal {
namespace {

constexpr std::size_t kNameWidth = 12;
constexpr std::string_view kAbsent = "(none)";

std::string orAbsent(std::string_view text) {
  return std::string(text.empty() ? kAbsent : text);
}

kvl::Value dateValue(const std::optional<kvl::Date>& date) {
  return date ? kvl::Value(dateText(*date)) : kvl::Value();
}

std::string expiryText(const std::optional<kvl::Date>& date) {
  if (!date) return std::string(kAbsent);
  const auto seconds = static_cast<std::int64_t>(date->secondsSince(kvl::Date::now()));
  const std::string distance = KVLEncoding::duration(seconds < 0 ? -seconds : seconds);
  return dateText(*date) + (seconds < 0 ? " (" + distance + " ago)" : " (in " + distance + ")");
}

std::string baseURLText(const KVLNotarySignature& signature) {
  const auto url = signature.baseURL();
  return url ? url->absoluteString() : std::string();
}

kvl::Value certificateValue(const kvl::CertificateRef& certificate) {
  if (!certificate) return {};
  return kvl::Dictionary{{"subject", certificate->subject()},
                         {"issuer", certificate->issuer()},
                         {"serial", certificate->serialNumber()},
                         {"notBefore", dateValue(certificate->notValidBefore())},
                         {"notAfter", dateValue(certificate->notValidAfter())}};
}

std::string clientText(const kvl::CertificateRef& client) {
  if (!client) return field("subject", "(none: the notary issued no certificate)");
  return field("subject", orAbsent(client->subject())) + field("issuer", client->issuer()) +
         field("serial", client->serialNumber());
}

// The notary's reply has arrived, and holds no URL that can be used.
bool hasNoURL(const kvl::Error& error) {
  return error.is(kvl::NSPOSIXErrorDomain, kvl::NSURLErrorUnsupportedURL);
}

// The text of the parser or library that failed says more than domain and code.
std::optional<std::string> reasonOf(const kvl::Error& error) {
  if (hasNoURL(error)) return std::nullopt;
  if (auto reason = error.localizedFailureReason()) return reason;
  const auto text = error.userInfo()[kvl::NSDebugDescriptionErrorKey].string();
  return text ? std::optional(std::string(*text)) : std::nullopt;
}

// Without domain and code, which stand behind it.
std::string wordsOf(const kvl::Error& error) {
  if (hasNoURL(error)) return "No URL that can be used was given.";
  const std::string numbers =
      " (" + error.domain() + " error " + std::to_string(error.code()) + ".)";
  std::string text = error.localizedDescription();
  if (!text.ends_with(numbers)) return text;
  return reasonOf(error).value_or(text.substr(0, text.size() - numbers.size()));
}

std::string numberOf(const kvl::Error& error) {
  return " [" + error.domain() + " " + std::to_string(error.code()) + "]";
}

}  // namespace

std::string errorText(const kvl::Error& error) {
  std::string text = wordsOf(error);
  const auto reason = reasonOf(error);
  if (reason && text.find(*reason) == std::string::npos) text += " (" + *reason + ")";
  return text + numberOf(error);
}

std::string reasonText(const kvl::Error& error) {
  return reasonOf(error).value_or(wordsOf(error)) + numberOf(error);
}

kvl::Dictionary errorValue(const kvl::Error& error) {
  const std::string words = wordsOf(error);
  kvl::Dictionary value{{"domain", error.domain()}, {"code", error.code()}, {"description", words}};
  if (const auto reason = reasonOf(error); reason && *reason != words) value.set("reason", *reason);
  return value;
}

std::string field(std::string_view name, std::string_view value) {
  std::string line(name);
  line.resize(std::max(kNameWidth, name.size() + 1), ' ');
  return line.append(kvl::printable(value)) + '\n';
}

std::string signatureText(const KVLNotarySignature& signature) {
  const kvl::CertificateRef anchor = signature.anchor();
  return field("base URL", orAbsent(baseURLText(signature))) + clientText(signature.client()) +
         field("expires", expiryText(signature.expires())) +
         field("anchor", anchor ? anchor->subject() : std::string(kAbsent));
}

kvl::Dictionary signatureValue(const KVLNotarySignature& signature) {
  return kvl::Dictionary{{"baseURL", baseURLText(signature)},
                         {"expires", dateValue(signature.expires())},
                         {"certificate", certificateValue(signature.client())},
                         {"anchor", certificateValue(signature.anchor())}};
}

}  // namespace kvlocal
