#include "tools/kvlocal/Describe.h"

#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingLocale.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <cstdint>
#include <string_view>

namespace kvlocal {
namespace {

constexpr std::size_t kNameWidth = 12;
constexpr std::string_view kAbsent = translatable("(none)");

std::string orAbsent(std::string_view text) {
  return text.empty() ? tr(kAbsent) : std::string(text);
}

// RFC 3339, in UTC and whole seconds: "2024-05-01T12:34:56Z".
std::string dateText(kvl::Date date) {
  return KVLExtensions::rfc3339().stringFromDate(date);
}

kvl::Value dateValue(const std::optional<kvl::Date>& date) {
  return date ? kvl::Value(dateText(*date)) : kvl::Value();
}

std::string expiryText(const std::optional<kvl::Date>& date) {
  if (!date) return tr(kAbsent);
  const auto seconds = static_cast<std::int64_t>(date->secondsSince(kvl::Date::now()));
  const std::string distance = KVLEncoding::duration(seconds < 0 ? -seconds : seconds);
  return seconds < 0 ? tr("%@ (%@ ago)", dateText(*date), distance)
                     : tr("%@ (in %@)", dateText(*date), distance);
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
  if (!client) return field(tr("subject"), tr("(none: the notary issued no certificate)"));
  return field(tr("subject"), orAbsent(client->subject())) + field(tr("issuer"), client->issuer()) +
         field(tr("serial"), client->serialNumber());
}

std::string numberOf(const kvl::Error& error) {
  return " [" + error.domain() + " " + std::to_string(error.code()) + "]";
}

}  // namespace

std::string reasonText(const kvl::Error& error) {
  const kvl::ErrorWords words = kvl::errorWords(error);
  return words.why.value_or(words.what) + numberOf(error);
}

kvl::Dictionary errorValue(const kvl::Error& error) {
  const kvl::ErrorWords words = kvl::errorWords(error);
  kvl::Dictionary value{
      {"domain", error.domain()}, {"code", error.code()}, {"description", words.what}};
  if (words.why && *words.why != words.what) value.set("reason", *words.why);
  return value;
}

std::string field(std::string_view name, std::string_view value) {
  std::string line(name);
  const std::size_t columns = columnsOf(name);
  line.append(std::max(kNameWidth, columns + 1) - columns, ' ');
  return line.append(kvl::printable(value)) + '\n';
}

std::string signatureText(const KVLNotarySignature& signature) {
  const kvl::CertificateRef anchor = signature.anchor();
  return field(tr("base URL"), orAbsent(baseURLText(signature))) + clientText(signature.client()) +
         field(tr("expires"), expiryText(signature.expires())) +
         field(tr("anchor"), anchor ? anchor->subject() : tr(kAbsent));
}

kvl::Dictionary signatureValue(const KVLNotarySignature& signature) {
  return kvl::Dictionary{{"baseURL", baseURLText(signature)},
                         {"expires", dateValue(signature.expires())},
                         {"certificate", certificateValue(signature.client())},
                         {"anchor", certificateValue(signature.anchor())}};
}

}  // namespace kvlocal
