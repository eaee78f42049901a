#include "devservice/notary/Notary.h"

#include "devservice/Log.h"
#include "devservice/notary/RequestCheck.h"

#include <cerrno>
#include <sstream>
#include <utility>

namespace devservice {
namespace {

constexpr const char* kReasonKey = "NSLocalizedFailureReason";
constexpr const char* kFilePathKey = "NSFilePath";
// PEM armour around DER that ends too early.
constexpr const char* kUndecodable =
    "-----BEGIN CERTIFICATE-----\nMIIBAAECAwQ=\n-----END CERTIFICATE-----\n";

std::vector<std::string> nonEmptyLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    if (!line.empty()) lines.push_back(line);
  return lines;
}

std::string clientName(const std::optional<std::string>& path) {
  return path ? "kvlocal client (" + *path + ")" : "kvlocal client";
}

NotaryAnswer spoiled(Grant grant, Fault fault) {
  switch (fault) {
    case Fault::error:
      return NotaryError{EIO, {{kReasonKey, "The notary was told to fail."}}};
    case Fault::empty:
      return Grant{};
    case Fault::noURL:
      grant.urls.reset();
      break;
    case Fault::badAnchor:
      grant.anchor = kUndecodable;
      break;
    case Fault::badCertificate:
      grant.certificate = kUndecodable;
      break;
    case Fault::noCertificate:
      grant.certificate.reset();
      break;
    case Fault::none:
    case Fault::otherKey:
    case Fault::rubbish:
    case Fault::hang:
    case Fault::exit:
      break;
  }
  return grant;
}

}  // namespace

Notary::Notary(NotaryOptions options) : options_(std::move(options)), state_(options_.state) {
  (void)(options_.newAuthority ? Authority::replace(state_) : Authority::open(state_));
}

Fault Notary::nextFault() {
  const bool spent = options_.faultCount && requests_ >= *options_.faultCount;
  ++requests_;
  return spent ? Fault::none : options_.fault;
}

NotaryAnswer Notary::answer(const std::optional<std::string>& path,
                            const std::optional<std::string>& request, Fault fault) const {
  log("request, path " + (path ? "\"" + *path + "\"" : "absent") +
      (request ? ", with a signing request" : ", minimal"));
  NotaryAnswer result = answerFor(path, request, fault == Fault::otherKey);
  if (fault == Fault::error || fault == Fault::empty) result = Grant{};
  if (Grant* grant = std::get_if<Grant>(&result)) result = spoiled(std::move(*grant), fault);
  if (const NotaryError* error = std::get_if<NotaryError>(&result)) {
    log("refused: " + error->userInfo.at(kReasonKey));
  }
  return result;
}

NotaryAnswer Notary::answerFor(const std::optional<std::string>& path,
                               const std::optional<std::string>& request,
                               bool isForOtherKey) const {
  auto found = urls();
  if (NotaryError* error = std::get_if<NotaryError>(&found)) return std::move(*error);
  const Authority authority = Authority::open(state_);
  Grant grant{std::get<0>(std::move(found)), authority.anchorPem(), std::nullopt};
  if (!request) return grant;
  const auto checked = checkRequest(*request);
  if (const Refusal* refusal = std::get_if<Refusal>(&checked))
    return NotaryError{EINVAL, {{kReasonKey, refusal->reason}}};
  const KeyPtr other = isForOtherKey ? makeKey() : nullptr;
  EVP_PKEY* const key =
      other ? other.get() : X509_REQ_get0_pubkey(std::get<RequestPtr>(checked).get());
  grant.certificate =
      pemText(authority.issueClient(key, clientName(path), options_.lifetime).get());
  log("issued a certificate for \"" + clientName(path) + "\", valid for " +
      std::to_string(options_.lifetime.count()) + " s");
  return grant;
}

std::variant<std::vector<std::string>, NotaryError> Notary::urls() const {
  if (!options_.urls.empty()) return options_.urls;
  if (const auto text = state_.read(kServiceURLFile)) return nonEmptyLines(*text);
  return NotaryError{ENOENT,
                     {{kReasonKey, "The local service is not running."},
                      {kFilePathKey, state_.file(kServiceURLFile).string()}}};
}

}  // namespace devservice
