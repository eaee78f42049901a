// Servers' certificates made from the bytes, for any host: one is trusted exactly when another
// reading of the rules says so. Any bytes in place of certificates are never trusted.
#include "fuzz/Choices.h"
#include "platform/core/ASCII.h"
#include "platform/security/TrustEvaluation.h"
#include "tests/security/CertificateFactory.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using kvl::fuzz::Choices;
using kvl::fuzz::require;
using kvltest::CertificatePlan;
using kvltest::Issued;

constexpr std::array<const char*, 12> kLabels{"localhost", "a",    "b.test",    "*",
                                              "xn--a",     "1",    "*a",        "a*",
                                              "*.test",    "test", "LOCALHOST", "a_b"};
constexpr std::array<const char*, 8> kAddresses{
    "127.0.0.1", "127.0.0.2", "::1", "::ffff:127.0.0.1", "10.0.0.1", "fe80::1", "0.0.0.0", "::"};

std::string nameFrom(Choices& choices) {
  std::string name;
  for (auto count = choices.below(4); count > 0; --count)
    name += (name.empty() ? "" : ".") + std::string(choices.of(kLabels));
  return name;
}

struct Names {
  std::vector<std::string> hosts;
  std::vector<std::string> addresses;

  [[nodiscard]] std::string text() const {
    std::string all;
    for (const auto& host : hosts) all += (all.empty() ? "DNS:" : ",DNS:") + host;
    for (const auto& address : addresses) all += (all.empty() ? "IP:" : ",IP:") + address;
    return all;
  }
};

Names namesFrom(Choices& choices) {
  Names names;
  for (auto count = choices.below(4); count > 0; --count) {
    auto name = nameFrom(choices);
    if (!name.empty()) names.hosts.push_back(std::move(name));
  }
  for (auto count = choices.below(3); count > 0; --count)
    names.addresses.emplace_back(choices.of(kAddresses));
  return names;
}

// The bytes of an address, none for what is a name.
std::string addressOf(const std::string& text) {
  std::array<char, 16> bytes{};
  if (inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) return {bytes.data(), 4};
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return {bytes.data(), 16};
  return {};
}

// RFC 9525, 6.3: an asterisk stands for one whole label, the first one.
bool namesHost(std::string_view pattern, std::string_view host) {
  if (kvl::ascii::equalIgnoringCase(pattern, host)) return true;
  if (!pattern.starts_with("*.")) return false;
  const auto dot = host.find('.');
  return dot != std::string_view::npos && dot > 0 &&
         kvl::ascii::equalIgnoringCase(pattern.substr(1), host.substr(dot));
}

bool names(const Names& certified, std::string host) {
  const auto address = addressOf(host);
  if (!address.empty())
    return std::ranges::any_of(certified.addresses,
                               [&](const auto& each) { return addressOf(each) == address; });
  if (host.ends_with('.')) host.pop_back();
  return !host.empty() && std::ranges::any_of(certified.hosts, [&](const auto& each) {
    return namesHost(each, host);
  });
}

// Whether both readings agree on asterisks: OpenSSL takes fewer of them than the rules allow, such
// as those before a single label, and none in names with characters beyond those of hosts.
bool isPlainCase(const Names& certified, const std::string& host) {
  const auto isPlain = [](const std::string& name) {
    return name.find_first_of("*_") == std::string::npos;
  };
  return isPlain(host) && std::ranges::all_of(certified.hosts, isPlain);
}

Issued authority(const char* name, const Issued* issuer = nullptr) {
  CertificatePlan plan;
  plan.commonName = name;
  plan.isAuthority = true;
  return issue(plan, issuer);
}

// Keys are made once: an input would take ten times as long otherwise.
struct Authorities {
  Issued root = authority("root");
  Issued impostor = authority("root");
  Issued other = authority("other");
  Issued between = authority("between", &root);
  kvl::security::OpenSSLPtr<EVP_PKEY> serverKey = kvltest::ellipticKey();
};

const Authorities& authorities() {
  static const Authorities all;
  return all;
}

struct Case {
  CertificatePlan plan;
  Names certified;
  std::string host;
  const Issued* issuer = nullptr;
  bool sendsBetween = false;
};

Case caseFrom(Choices& choices) {
  const auto& all = authorities();
  const std::array<const Issued*, 4> issuers{&all.root, &all.impostor, &all.other, &all.between};
  constexpr std::array<const char*, 4> kUses{"serverAuth", "clientAuth", "serverAuth,clientAuth",
                                             ""};
  const auto faults = choices.byte();
  Case made;
  made.issuer = issuers[faults % 4];
  made.sendsBetween = (faults & 4U) != 0;
  if ((faults & 24U) == 8) made.plan.endsIn = -60;
  if ((faults & 24U) == 16) made.plan.startsIn = 60;
  made.plan.isForged = (faults & 224U) == 32;
  made.plan.extendedKeyUsage = kUses[faults / 64];
  made.certified = namesFrom(choices);
  made.plan.alternativeNames = made.certified.text();
  made.plan.commonName = "localhost";
  made.host = choices.yes() ? nameFrom(choices) : std::string(choices.of(kAddresses));
  if (choices.byte() == 1) made.host += '.';
  return made;
}

bool hasSoundChain(const Case& made) {
  const auto& all = authorities();
  const auto& plan = made.plan;
  const bool isIssued =
      made.issuer == &all.root || (made.issuer == &all.between && made.sendsBetween);
  return isIssued && plan.endsIn > 0 && plan.startsIn < 0 && !plan.isForged &&
         plan.extendedKeyUsage != std::string("clientAuth");
}

Issued issued(const Case& made) {
  EVP_PKEY* const key = authorities().serverKey.get();
  EVP_PKEY_up_ref(key);
  return issue(made.plan, made.issuer, kvl::security::OpenSSLPtr<EVP_PKEY>(key));
}

kvl::TrustResult evaluated(const std::vector<kvl::Data>& chain, const std::string& host,
                           std::int32_t& code) {
  const auto trust = kvl::security::makeServerTrust(chain, host);
  require(trust->setAnchorCertificates({authorities().root.reference()}) == kvl::kSuccess,
          "anchors are taken");
  auto result = kvl::TrustResult::invalid;
  const auto status = trust->evaluate(result);
  require(status == kvl::kSuccess || result == kvl::TrustResult::invalid, "a failure says nothing");
  require(trust->legacyResultCode(code) == status || status != kvl::kSuccess,
          "a verdict has a code");
  require((trust->verifyError() == 0) != (result == kvl::TrustResult::recoverableFailure ||
                                          result == kvl::TrustResult::fatalFailure),
          "a refusal has a reason");
  return result;
}

void checkMadeServer(Choices& choices) {
  const auto made = caseFrom(choices);
  std::vector<kvl::Data> chain{issued(made).der()};
  if (made.sendsBetween) chain.push_back(authorities().between.der());
  std::int32_t code = 0;
  const auto result = evaluated(chain, made.host, code);
  const bool isTrusted = result == kvl::TrustResult::unspecified;
  require(!isTrusted || hasSoundChain(made), "only what the anchor vouches for is trusted");
  require(!isTrusted || names(made.certified, made.host), "only the host that is named is trusted");
  const bool isMismatch = code == kvl::CSSMERR_APPLETP_HOSTNAME_MISMATCH;
  require(!isMismatch || hasSoundChain(made), "a mismatch is the only fault");
  if (!hasSoundChain(made) || !isPlainCase(made.certified, made.host)) return;
  require(isTrusted == names(made.certified, made.host), "the host that is named is trusted");
  require(isTrusted != isMismatch, "another host is a mismatch");
}

void checkBytesAsServer(Choices& choices) {
  std::vector<kvl::Data> chain;
  while (choices.left() && chain.size() < 4) {
    auto size = choices.number(2);
    if (size > choices.rest().size()) size = choices.rest().size();
    chain.push_back(kvl::Data::fromText(choices.text(size)));
  }
  std::int32_t code = 0;
  require(evaluated(chain, "localhost", code) != kvl::TrustResult::unspecified,
          "bytes of others are never trusted");
}

void checkTrust(kvl::fuzz::Input input) {
  Choices choices(input);
  if (choices.byte() % 4 == 3) {
    checkBytesAsServer(choices);
  } else {
    checkMadeServer(choices);
  }
}

const kvl::fuzz::Target trust("trust", checkTrust);

}  // namespace
