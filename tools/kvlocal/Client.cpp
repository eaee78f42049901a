#include "tools/kvlocal/Client.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/Semaphore.h>
#include <local/platform/Text.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace kvlocal {
namespace {

using Result = Rendezvous::Result;

// Between two questions to a notary that cannot give an identity yet.
constexpr std::chrono::milliseconds kLongestPause{1000};

constexpr auto kPathVariable = "korvale_vandrel_notary";

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
          KVLNotary::notaryWithPath(notaryPath(context.settings)), {})),
      limit_(std::chrono::steady_clock::now() + context.settings.limit()) {}

Client::~Client() {
  // The key pair goes with it.
  kvl::Semaphore ended;
  session_->end([&ended](const std::optional<kvl::Error>& error) {
    if (error) complain(kvl::errorText(*error));
    ended.signal();
  });
  ended.wait();
}

ExitCode Client::establish() {
  for (;;) {
    const ExitCode outcome = awaitNotarisation();
    if (outcome != ExitCode::notEstablished || !context_.settings.retries() || isOver())
      return outcome;
    const auto never = [] { return false; };
    if (context_.rendezvous->wait(nextTrial(), never) == Result::interrupted)
      return ExitCode::interrupted;
    // The session's own next trial may be 15 seconds away.
    session_->enqueueNotarisation();
  }
}

ExitCode Client::awaitNotarisation() const {
  const auto isTold = std::make_shared<bool>(false);
  const auto isEstablished = std::make_shared<bool>(false);
  const auto waiting = session_->whenEstablished(
      std::max(limit_ - std::chrono::steady_clock::now(), std::chrono::nanoseconds{0}),
      [=, rendezvous = context_.rendezvous](const std::optional<kvl::Error>& error) {
        rendezvous->change([&] {
          *isTold = true;
          *isEstablished = !error;
        });
      },
      KVLSessionWait::untilFirstFailure);
  const Result result = context_.rendezvous->wait(std::nullopt, [&] { return *isTold; });
  if (result == Result::interrupted) return ExitCode::interrupted;
  return *isEstablished ? ExitCode::ok : ExitCode::notEstablished;
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
  if (!error) return tr("the notary service did not answer in time");
  if (isUnreachable(*error))
    return tr("the notary service cannot be reached: %@", reasonText(*error));
  return tr("the notary service gave no identity: %@", kvl::errorText(*error));
}

}  // namespace kvlocal
