#include "tools/kvlocal/Client.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <utility>

namespace kvlocal {
namespace {

using Result = Rendezvous::Result;

// Between two questions to a notary that cannot give an identity yet.
constexpr std::chrono::milliseconds kLongestPause{1000};

constexpr auto kPathVariable = "korvale_vandrel_notary";

// A session shows its notary's errors only as progress texts; this notary keeps the last one. It
// is recorded before the session learns of it, so whoever sees the state change finds it. That
// there is an answer is told after the session has dealt with it: all that it logs has been logged,
// and the states that it leads to wait to be told.
class RecordingNotary final : public KVLNotary {
 public:
  using Record = std::shared_ptr<kvl::Atomic<std::optional<kvl::Error>>>;

  using AnswerHandler = std::function<void(bool hasFailed)>;

  RecordingNotary(std::optional<std::string> path, Record record, AnswerHandler onAnswer)
      : KVLNotary(std::move(path)), record_(std::move(record)), onAnswer_(std::move(onAnswer)) {}

  void notariseWithCompletionHandler(CompletionHandler completionHandler) override {
    KVLNotary::notariseWithCompletionHandler(
        [record = record_, onAnswer = onAnswer_, handler = std::move(completionHandler)](
            std::shared_ptr<KVLNotarySignature> signature, std::optional<kvl::Error> error) {
          record->set(error);
          const bool failed = signature == nullptr;
          handler(std::move(signature), std::move(error));
          onAnswer(failed);
        });
  }

 private:
  const Record record_;
  const AnswerHandler onAnswer_;
};

// Whether the service could not be reached at all, as opposed to one that answered with an error.
bool isUnreachable(const kvl::Error& error) {
  return error.is(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionInvalid);
}

// Where a redirect leads to is no matter of the service's, and it has had the request by then.
bool isOfService(const kvl::Error& error, const KVLNotarySignature& signature) {
  const auto text = error.userInfo()[kvl::NSURLErrorFailingURLStringErrorKey].string();
  const auto failed = text ? kvl::URL::parse(*text) : std::nullopt;
  const auto base = signature.baseURL();
  return failed && base && failed->host() == base->host() && failed->port() == base->port();
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
          std::make_shared<RecordingNotary>(
              notaryPath(context.settings), lastError_,
              [rendezvous = context.rendezvous, seen = seen_](bool hasFailed) {
                rendezvous->change([&] { (hasFailed ? seen->failed : seen->established) = true; });
              }),
          {})),
      limit_(std::chrono::steady_clock::now() + context.settings.limit()) {}

Client::~Client() {
  // The session lives as long as the process and would leave its disposable key pair behind.
  if (const auto error = KVLNotary::deleteKeys()) complain(kvl::errorText(*error));
}

ExitCode Client::establish() {
  const bool retries = context_.settings.retries();
  for (;;) {
    bool established = false;
    const Result result = context_.rendezvous->wait(retries ? nextTrial() : limit_, [&] {
      established = seen_->established;
      return established || (!retries && seen_->failed);
    });
    if (result == Result::interrupted) return ExitCode::interrupted;
    if (established) return ExitCode::ok;
    if (result == Result::met) return awaitTelling();
    if (isOver()) return ExitCode::notEstablished;
    askAgain();
  }
}

// Observers are told in turn, so this one is told when all others know where the failure led.
ExitCode Client::awaitTelling() const {
  const auto last =
      session_->observeState([rendezvous = context_.rendezvous, seen = seen_](KVLSessionState) {
        rendezvous->change([&] { seen->failureTold = true; });
      });
  bool established = false;
  const Result result = context_.rendezvous->wait(limit_, [&] {
    established = seen_->established;
    return established || seen_->failureTold;
  });
  if (result == Result::interrupted) return ExitCode::interrupted;
  return established ? ExitCode::ok : ExitCode::notEstablished;
}

// The session's own next trial may be 15 seconds away.
void Client::askAgain() {
  bool failed = false;
  context_.rendezvous->change([&] { failed = std::exchange(seen_->failed, false); });
  if (failed) session_->enqueueNotarisation();
}

std::chrono::steady_clock::time_point Client::nextTrial() {
  const auto now = std::chrono::steady_clock::now();
  const auto next = std::min(limit_, now + pause_);
  pause_ = std::min(pause_ * 2, kLongestPause);
  return next;
}

bool Client::mayYetReachService(const kvl::Error& error) const {
  const auto signature = session_->signature();
  const bool isRefused = error.is(kvl::NSURLErrorDomain, kvl::NSURLErrorCannotConnectToHost) &&
                         (!signature || isOfService(error, *signature));
  const bool isLost = error.is(kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown) && !signature;
  return context_.settings.retries() && !isOver() && (isRefused || isLost);
}

ExitCode Client::waitForService() {
  const auto never = [] { return false; };
  if (context_.rendezvous->wait(nextTrial(), never) == Result::interrupted)
    return ExitCode::interrupted;
  // A service that has been started anew may be elsewhere.
  context_.rendezvous->change([&] { *seen_ = {}; });
  session_->enqueueNotarisation();
  return establish();
}

ExitCode Client::reportFailure() const {
  const std::string text = failureText();
  return fail(context_.settings.json, ExitCode::notEstablished, text,
              lastError().value_or(ownError(ExitCode::notEstablished, text)));
}

std::string Client::failureText() const {
  return notaryFailureText(lastError());
}

std::string notaryFailureText(const std::optional<kvl::Error>& error) {
  if (!error) return "the notary service did not answer in time";
  if (isUnreachable(*error)) return "the notary service cannot be reached: " + reasonText(*error);
  return "the notary service gave no identity: " + kvl::errorText(*error);
}

}  // namespace kvlocal
