#include "tools/kvlocal/Exchange.h"

#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/ProgressNote.h"

#include <local/KVLEncodingSession.h>

#include <algorithm>
#include <thread>

namespace kvlocal {
namespace {

using Result = Rendezvous::Result;

Rendezvous::Limit earlier(Rendezvous::Limit a, Rendezvous::Limit b) {
  return a && b ? std::min(a, b) : std::max(a, b);
}

// The answer's head tells more than that time passes.
std::string phaseOf(const Exchange::Task& task) {
  const auto response = task ? task->response() : nullptr;
  if (!response) return "waiting for the answer";
  const auto length = response->headers.find("Content-Length");
  return length ? "receiving " + std::string(*length) + " bytes" : "receiving the answer";
}

Result waitVisibly(Rendezvous& rendezvous, const Exchange& exchange, const Exchange::Task& task,
                   Rendezvous::Limit limit, const std::function<bool()>& isComplete) {
  ProgressNote note(exchange.tellsProgress);
  for (;;) {
    const Result result = rendezvous.wait(earlier(limit, note.next()), isComplete);
    const bool hasPassed = limit && std::chrono::steady_clock::now() >= *limit;
    if (result != Result::late || hasPassed) return result;
    note.show(phaseOf(task));
  }
}

// The wait needs a thread of its own while this one, the main thread, serves the queue.
Result servingMainQueue(const std::function<Result()>& wait) {
  Result result = Result::late;
  kvl::Semaphore done;
  std::thread waiting([&] {
    result = wait();
    done.signal();
  });
  const auto late = KVLEncoding::waitForSemaphore(done, KVLEncoding::WaitReason("the answer"));
  waiting.join();
  return late ? Result::late : result;
}

}  // namespace

void declareProgress(CLI::App& parser, bool& tellsProgress) {
  parser.add_flag("--progress", tellsProgress,
                  "Tell on standard error how long it takes, even if that is no terminal");
}

ExitCode establish(Client& client) {
  const ExitCode result = client.establish();
  if (result == ExitCode::notEstablished) complain(client.failureText());
  return result;
}

ExitCode detail::carryOut(const Context& context, const Client& client, const Exchange& exchange,
                          const std::function<bool()>& isComplete, bool& isLate) {
  const auto limit =
      exchange.limitsItself ? Rendezvous::Limit() : limitAfter(context.settings.timeoutSeconds);
  const Exchange::Task task = exchange.send(client.session());
  const auto wait = [&] {
    return waitVisibly(*context.rendezvous, exchange, task, limit, isComplete);
  };
  const Result result = exchange.usesMainQueue ? servingMainQueue(wait) : wait();
  if (result == Result::interrupted && task) task->cancel();
  isLate = result == Result::late;
  return result == Result::interrupted ? ExitCode::interrupted : ExitCode::ok;
}

std::optional<kvl::Error> detail::faultOf(bool isLate, const kvl::URLResponseRef& response) {
  if (isLate) {
    return kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut,
                      {{kvl::NSLocalizedDescriptionKey, "The answer did not come in time."}});
  }
  if (response && response->isHTTP()) return std::nullopt;
  return kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorBadServerResponse,
                    {{kvl::NSLocalizedDescriptionKey, "The answer is not HTTP."}});
}

}  // namespace kvlocal
