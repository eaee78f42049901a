// The command identity: an identity in files, for programs that are no host.
#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/IdentityKey.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/SecretFolder.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLNotary.h>
#include <local/platform/Text.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

namespace kvlocal {
namespace {

constexpr const char* kKeyFile = "key.pem";
constexpr const char* kCertificateFile = "certificate.pem";
constexpr const char* kAnchorFile = "anchor.pem";
constexpr const char* kURLFile = "url";
constexpr std::array kFiles{kKeyFile, kCertificateFile, kAnchorFile, kURLFile};

constexpr std::chrono::milliseconds kPause{500};

struct IdentityOptions {
  std::string folder;
  bool replaces = false;
};

// The notary's channel alone: nothing of the keys of the user's hosts is touched.
class Channel final : public KVLNotary {
 public:
  Channel() : KVLNotary(WithoutKeys{}) {}
};

struct Reply {
  std::optional<kvl::Dictionary> entries;
  std::optional<kvl::Error> error;
};

// Asks the notary once. `ok` with a reply or an error.
ExitCode askOnce(const Context& context, const std::string& request, Rendezvous::Limit limit,
                 Reply& reply) {
  const auto slot = std::make_shared<std::optional<Reply>>();
  Channel channel;
  channel.sendNotary(
      notaryPath(context.settings), {{NotaryRequestKeyCertificateSigningRequest, request}},
      [slot, rendezvous = context.rendezvous](auto entries, auto error) {
        rendezvous->change([&] { *slot = Reply{std::move(entries), std::move(error)}; });
      });
  const auto result = context.rendezvous->wait(limit, [&] {
    if (*slot) reply = **slot;
    return slot->has_value();
  });
  return result == Rendezvous::Result::interrupted ? ExitCode::interrupted : ExitCode::ok;
}

// With a time-out again and again until that has passed.
ExitCode ask(const Context& context, const std::string& request, Reply& reply) {
  const auto limit = std::chrono::steady_clock::now() + context.settings.limit();
  for (;;) {
    reply = {};
    const ExitCode asked = askOnce(context, request, limit, reply);
    if (asked != ExitCode::ok) return asked;
    const auto next = std::chrono::steady_clock::now() + kPause;
    if (reply.entries || !context.settings.retries() || next > limit) return ExitCode::ok;
    if (context.rendezvous->wait(next, [] { return false; }) == Rendezvous::Result::interrupted)
      return ExitCode::interrupted;
  }
}

kvl::CertificateRef certificateIn(const kvl::Dictionary& reply, std::string_view key) {
  kvl::CertificateRef certificate;
  const auto text = reply[key].string();
  return KVLNotary::decode(text, &certificate) ? nullptr : certificate;
}

// Takes over what the notary has granted. Absent, or what is missing of an identity for this key.
std::optional<std::string> take(const kvl::Dictionary& reply, const IdentityKey& key,
                                KVLNotarySignature& signature) {
  signature.setBaseURL(KVLNotary::baseURL(reply[NotaryResponseKeyURL]));
  signature.setAnchor(certificateIn(reply, NotaryResponseKeyAnchor));
  signature.setClient(certificateIn(reply, NotaryResponseKeyCertificate));
  if (!signature.baseURL()) return tr("the notary service gave no URL that can be used");
  if (!signature.anchor()) return tr("the notary service gave no anchor to trust the service by");
  if (!signature.client() || !key.isOf(*signature.client()))
    return tr("the notary service gave no certificate for the key");
  return std::nullopt;
}

ExitCode showIdentity(const Context& context, const KVLNotarySignature& signature) {
  if (!context.settings.json) return print(signatureText(signature));
  return printLine(kvl::jsonText(kvl::Dictionary{{"signature", signatureValue(signature)}}));
}

ExitCode writeIdentity(const Context& context, const SecretFolder& folder, const IdentityKey& key,
                       const KVLNotarySignature& signature, bool replaces) {
  const std::string certificate = signature.client()->pem();
  const std::string anchor = signature.anchor()->pem();
  const std::string url = signature.baseURL()->absoluteString() + "\n";
  const std::array files{SecretFolder::File{kCertificateFile, certificate},
                         SecretFolder::File{kAnchorFile, anchor}, SecretFolder::File{kURLFile, url},
                         SecretFolder::File{kKeyFile, key.text()}};
  if (const auto fault = folder.write(files, replaces))
    return fail(context.settings.json, ExitCode::output, *fault);
  return showIdentity(context, signature);
}

std::optional<std::string> faultOf(const SecretFolder& folder, bool replaces) {
  for (const char* name : kFiles)
    if (auto fault = folder.faultOf(name, replaces)) return fault;
  return std::nullopt;
}

ExitCode getIdentity(const Context& context, const SecretFolder& folder, bool replaces) {
  const auto key = IdentityKey::make();
  const auto request = key ? key->request() : std::nullopt;
  const bool json = context.settings.json;
  if (!request)
    return fail(json, ExitCode::noRequest, tr("no key and signing request could be made"));
  Reply reply;
  const ExitCode asked = ask(context, *request, reply);
  if (asked != ExitCode::ok) return asked;
  if (!reply.entries) {
    const std::string text = notaryFailureText(reply.error);
    return fail(json, ExitCode::notEstablished, text,
                reply.error.value_or(ownError(ExitCode::notEstablished, text)));
  }
  KVLNotarySignature signature;
  if (const auto fault = take(*reply.entries, *key, signature))
    return fail(json, ExitCode::notEstablished, *fault);
  return writeIdentity(context, folder, *key, signature, replaces);
}

ExitCode runIdentity(const Context& context, const IdentityOptions& options) {
  std::optional<std::string> fault;
  const SecretFolder folder(options.folder, fault);
  if (!fault) fault = faultOf(folder, options.replaces);
  if (fault) return fail(context.settings.json, ExitCode::output, *fault);
  return getIdentity(context, folder, options.replaces);
}

Runner prepareIdentity(CLI::App& parser) {
  const auto options = std::make_shared<IdentityOptions>();
  parser
      .add_option(
          "--out", options->folder,
          tr("Folder for key.pem, certificate.pem, anchor.pem and url; made when it is missing"))
      ->type_name("DIR")
      ->required();
  parser.add_flag("--replace", options->replaces, tr("Replace files that are there"));
  return [options](const Context& context) { return runIdentity(context, *options); };
}

}  // namespace

Command identityCommand() {
  return {"identity", translatable("Get an identity into files, for curl, a browser or tests"),
          prepareIdentity};
}

}  // namespace kvlocal
