// The commands that only need the notary: status, watch and csr.
#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <utility>

namespace kvlocal {
namespace {

struct WatchOptions {
  std::optional<double> seconds;
  std::optional<std::int64_t> count;
};

// A change as the two kinds of output show it.
struct Change {
  std::string text;
  kvl::Dictionary value;
};

Change stateChange(KVLSessionState state) {
  const auto number = static_cast<std::uint64_t>(state);
  const std::string name(KVLSessionStateText(state));
  return {field(tr("state"), std::to_string(number) + " " + name),
          {{"state", name}, {"value", number}}};
}

Change progressChange(const kvl::ProgressState& progress) {
  std::string text = field(tr("progress"), progress.localizedDescription);
  std::string_view detail = progress.localizedAdditionalDescription;
  while (!detail.empty()) {
    const std::size_t length = std::min(detail.find('\n'), detail.size());
    text += field("", detail.substr(0, length));
    detail.remove_prefix(std::min(length + 1, detail.size()));
  }
  return {std::move(text),
          {{"progress", progress.localizedDescription},
           {"detail", progress.localizedAdditionalDescription},
           {"completed", progress.completedUnitCount},
           {"total", progress.totalUnitCount}}};
}

Change signatureChange(const KVLNotarySignature& signature) {
  return {tr("identity") + '\n' + signatureText(signature),
          {{"signature", signatureValue(signature)}}};
}

// Collects the changes of a session, in the order in which they are told.
class Watcher {
 public:
  Watcher(const KVLSession& session, std::shared_ptr<Rendezvous> rendezvous)
      : session_(session), rendezvous_(std::move(rendezvous)) {
    states_ = session.observeState([this](KVLSessionState state) { add(stateChange(state)); });
    progress_ = session.progress()->observe(
        [this](const kvl::ProgressState& progress) { add(progressChange(progress)); });
  }

  // The next change; absent when the limit has passed or the user has had enough.
  std::optional<Change> next(Rendezvous::Limit limit) {
    std::optional<Change> change;
    const auto result = rendezvous_->wait(limit, [&] {
      if (!change && !changes_.empty()) {
        change = std::move(changes_.front());
        changes_.pop_front();
      }
      return change.has_value();
    });
    return result == Rendezvous::Result::met ? change : std::nullopt;
  }

 private:
  void add(Change change) {
    rendezvous_->change([&] {
      changes_.push_back(std::move(change));
      addSignature();
    });
  }

  // A renewal changes neither state nor text, only the signature.
  void addSignature() {
    auto signature = session_.signature();
    if (signature && signature != shown_) changes_.push_back(signatureChange(*signature));
    shown_ = std::move(signature);
  }

  const KVLSession& session_;
  const std::shared_ptr<Rendezvous> rendezvous_;
  std::deque<Change> changes_;
  std::shared_ptr<KVLNotarySignature> shown_;
  // Last, so that the handlers are silent before what they use goes.
  kvl::Observation states_;
  kvl::Observation progress_;
};

// Being ended by the user is how watching normally ends, so it counts as done.
ExitCode runWatch(const Context& context, const WatchOptions& options) {
  const Rendezvous::Limit limit = limitAfter(options.seconds);
  Client client(context);
  Watcher watcher(client.session(), context.rendezvous);
  for (std::int64_t shown = 0; !options.count || shown < *options.count; ++shown) {
    const auto change = watcher.next(limit);
    if (!change) break;
    const ExitCode printed =
        print(context.settings.json ? kvl::jsonText(change->value) + '\n' : change->text);
    if (printed != ExitCode::ok) return printed;
  }
  return ExitCode::ok;
}

Runner prepareWatch(CLI::App& parser) {
  const auto options = std::make_shared<WatchOptions>();
  parser.add_option("--for", options->seconds, tr("End after this many seconds"))
      ->type_name("SECONDS")
      ->check(secondsCheck());
  parser.add_option("--count", options->count, tr("End after this many changes"))
      ->type_name("N")
      ->check(countCheck());
  return [options](const Context& context) { return runWatch(context, *options); };
}

std::string statusText(const Client& client) {
  std::string text = field(tr("state"), KVLSessionStateText(client.session().state()));
  if (const auto signature = client.session().signature()) text += signatureText(*signature);
  return text;
}

std::string statusJSON(const Client& client, ExitCode result) {
  kvl::Dictionary value{{"state", KVLSessionStateText(client.session().state())}};
  if (const auto signature = client.session().signature())
    value.set("signature", signatureValue(*signature));
  const auto error = client.lastError();
  if (error) {
    value.set("error", errorValue(*error));
  } else if (result != ExitCode::ok) {
    value.set("error", errorValue(ownError(result, client.failureText())));
  }
  return kvl::jsonText(value) + '\n';
}

ExitCode runStatus(const Context& context) {
  Client client(context);
  const ExitCode result = client.establish();
  if (result == ExitCode::interrupted) return result;
  if (result == ExitCode::notEstablished) complain(client.failureText());
  const ExitCode printed =
      print(context.settings.json ? statusJSON(client, result) : statusText(client));
  return printed == ExitCode::ok ? result : printed;
}

ExitCode runCSR(const Context& context) {
  const KVLNotary notary(notaryPath(context.settings));
  const auto request = notary.pemCertificateSigningRequest();
  if (!request) {
    return fail(context.settings.json, ExitCode::noRequest,
                tr("no signing request could be made; --verbose shows why"));
  }
  if (!context.settings.json) return printLine(*request);
  return printLine(kvl::jsonText(kvl::Dictionary{{"certificateSigningRequest", *request}}));
}

}  // namespace

Command watchCommand() {
  return {"watch",
          translatable("Show states, progress and identities as they change, until Ctrl-C"),
          prepareWatch};
}

Command statusCommand() {
  return {"status", translatable("Get an identity from the notary and show it"),
          [](CLI::App&) -> Runner { return runStatus; }};
}

Command csrCommand() {
  return {"csr", translatable("Show a certificate signing request such as the notary gets"),
          [](CLI::App&) -> Runner { return runCSR; }};
}

}  // namespace kvlocal
