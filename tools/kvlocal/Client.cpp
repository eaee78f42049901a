#include "tools/kvlocal/Client.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Output.h"

#include <cstdlib>
#include <functional>
#include <utility>

namespace kvlocal {
namespace {

constexpr auto kPathVariable = "korvale_vandrel_notary";

// A session shows its notary's errors only as progress texts; this notary keeps the last one. It
// is recorded before the session learns of it, so whoever sees the state change finds it. A failure
// is told after the session has dealt with it: all that it logs has been logged, and the states
// that it leads to wait to be told.
class RecordingNotary final : public KVLNotary {
 public:
  using Record = std::shared_ptr<kvl::Atomic<std::optional<kvl::Error>>>;

  RecordingNotary(std::optional<std::string> path, Record record, std::function<void()> onFailure)
      : KVLNotary(std::move(path)), record_(std::move(record)), onFailure_(std::move(onFailure)) {}

  void notariseWithCompletionHandler(CompletionHandler completionHandler) override {
    KVLNotary::notariseWithCompletionHandler(
        [record = record_, onFailure = onFailure_, handler = std::move(completionHandler)](
            std::shared_ptr<KVLNotarySignature> signature, std::optional<kvl::Error> error) {
          record->set(error);
          const bool failed = signature == nullptr;
          handler(std::move(signature), std::move(error));
          if (failed) onFailure();
        });
  }

 private:
  const Record record_;
  const std::function<void()> onFailure_;
};

// Whether the service could not be reached at all, as opposed to one that answered with an error.
bool isUnreachable(const kvl::Error& error) {
  return error.is(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionInvalid);
}

}  // namespace

std::optional<std::string> notaryPath(const Settings& settings) {
  if (settings.notaryPath) return settings.notaryPath;
  const char* path = std::getenv(kPathVariable);
  if (path == nullptr || *path == '\0') return std::nullopt;
  return path;
}

Client::Client(const Context& context)
    : context_(context),
      session_(KVLSession::sessionWithNotary(
          std::make_shared<RecordingNotary>(notaryPath(context.settings), lastError_,
                                            [rendezvous = context.rendezvous, seen = seen_] {
                                              rendezvous->change([&] { seen->failed = true; });
                                            }),
          {})),
      observation_(session_->observeState(
          [rendezvous = context.rendezvous, seen = seen_](KVLSessionState state) {
            if (state != KVLSessionStateEstablished) return;
            rendezvous->change([&] { seen->established = true; });
          })) {}

Client::~Client() {
  // The session lives as long as the process and would leave its disposable key pair behind.
  if (const auto error = KVLNotary::deleteKeys()) complain(errorText(*error));
}

ExitCode Client::establish() {
  using Result = Rendezvous::Result;
  const auto limit = std::chrono::steady_clock::now() + context_.settings.limit();
  bool established = false;
  const auto waitUntil = [&](const bool& hasFailed) {
    return context_.rendezvous->wait(limit, [&] {
      established = seen_->established;
      return established || (!context_.settings.retries() && hasFailed);
    });
  };
  Result result = waitUntil(seen_->failed);
  if (result == Result::met && !established) {
    // Observers are told in turn, so this one is told when all others know where the failure led.
    const auto last =
        session_->observeState([rendezvous = context_.rendezvous, seen = seen_](KVLSessionState) {
          rendezvous->change([&] { seen->failureTold = true; });
        });
    result = waitUntil(seen_->failureTold);
  }
  if (result == Result::interrupted) return ExitCode::interrupted;
  return established ? ExitCode::ok : ExitCode::notEstablished;
}

std::string Client::failureText() const {
  const auto error = lastError();
  if (!error) return "the notary service did not answer in time";
  if (isUnreachable(*error)) return "the notary service cannot be reached: " + errorText(*error);
  return "the notary service gave no identity: " + errorText(*error);
}

}  // namespace kvlocal
