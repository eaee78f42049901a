#include "tools/kvlocal/Exchange.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace kvlocal {
namespace {

constexpr std::chrono::milliseconds kFirstNote{500};
constexpr std::chrono::seconds kNoteInterval{1};
constexpr std::string_view kEraseLine = "\r\033[K";

void writeToErrors(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// A line on standard error that tells that something goes on. On a terminal it is always the same
// line, which goes away at the end; what takes less than half a second shows none. For one thread.
class ProgressNote {
 public:
  // Only for a terminal, unless it is `forced`.
  explicit ProgressNote(bool forced);
  ~ProgressNote();
  ProgressNote(const ProgressNote&) = delete;
  ProgressNote& operator=(const ProgressNote&) = delete;

  // When `show` is to be called next; absent for never.
  [[nodiscard]] Rendezvous::Limit next() const { return next_; }
  // Writes what is going on, and for how many seconds.
  void show(std::string_view phase);

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const bool isTerminal_;
  Rendezvous::Limit next_;
  bool isShown_ = false;
};

ProgressNote::ProgressNote(bool forced) : isTerminal_(isatty(STDERR_FILENO) == 1) {
  if (forced || isTerminal_) next_ = start_ + kFirstNote;
}

ProgressNote::~ProgressNote() {
  if (isShown_ && isTerminal_) writeToErrors(kEraseLine);
}

void ProgressNote::show(std::string_view phase) {
  const auto now = std::chrono::steady_clock::now();
  next_ = now + kNoteInterval;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
  std::string text = "kvlocal: ";
  text += seconds > 0 ? tr("%@, %@ s", phase, seconds) : std::string(phase);
  writeToErrors(isTerminal_ ? std::string(kEraseLine) + text : text + "\n");
  isShown_ = true;
}

using Result = Rendezvous::Result;

Rendezvous::Limit earlier(Rendezvous::Limit a, Rendezvous::Limit b) {
  return a && b ? std::min(a, b) : std::max(a, b);
}

// Once the answer's head is there, it tells how much is to come.
std::string phaseOf(const Exchange::Task& task) {
  const auto response = task ? task->response() : nullptr;
  if (!response) return tr("waiting for the answer");
  return receivingText(response->headers.find("Content-Length"));
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

constexpr int kFirstErrorStatus = 400;

std::string protocolName(int version) {
  if (version == 0) return "HTTP";
  const std::string major = "HTTP/" + std::to_string(version / 10);
  return version < 20 ? major + "." + std::to_string(version % 10) : major;
}

std::string bodyJSON(const Answer<Body>& answer) {
  kvl::Dictionary value = headValue(*answer.response);
  const kvl::Data body = answer.content.value_or(kvl::Data());
  if (kvl::isUTF8(body.text())) {
    value.set("body", body.text());
  } else {
    value.set("bodyBase64", kvl::base64(body.bytes()));
  }
  return kvl::jsonText(value) + '\n';
}

ExitCode showBody(const Answer<Body>& answer, const Report& report) {
  if (report.json) return print(bodyJSON(answer));
  if (report.showsHead) {
    const ExitCode printed = print(headText(*answer.response));
    if (printed != ExitCode::ok) return printed;
  }
  return answer.content ? print(answer.content->text()) : ExitCode::ok;
}

kvl::Dictionary headOf(const kvl::URLResponseRef& response) {
  return response && response->isHTTP() ? headValue(*response) : kvl::Dictionary();
}

bool hasErrorStatus(const kvl::URLResponseRef& response) {
  return response && response->isHTTP() && *response->httpStatusCode >= kFirstErrorStatus;
}

std::string statusText(int status) {
  return tr("the service answered with HTTP status %@", status);
}

}  // namespace

void declareProgress(CLI::App& parser, bool& tellsProgress) {
  parser.add_flag("--progress", tellsProgress,
                  tr("Tell on standard error how long it takes, even if that is no terminal"));
}

ExitCode establish(Client& client) {
  const ExitCode result = client.establish();
  return result == ExitCode::notEstablished ? client.reportFailure() : result;
}

kvl::RequestOptions onOtherThread() {
  kvl::RequestOptions options;
  options.queue = kvl::DispatchQueue::serial("kvlocal.answers");
  return options;
}

ExitCode detail::carryOut(const Context& context, const Client& client, const Exchange& exchange,
                          const std::function<bool()>& isComplete, bool& isLate) {
  const auto limit =
      exchange.limitsItself ? Rendezvous::Limit() : limitAfter(context.settings.timeoutSeconds);
  const Exchange::Task task = exchange.send(client.session());
  const Result result = waitVisibly(*context.rendezvous, exchange, task, limit, isComplete);
  if (result == Result::interrupted && task) task->cancel();
  isLate = result == Result::late;
  return result == Result::interrupted ? ExitCode::interrupted : ExitCode::ok;
}

std::optional<kvl::Error> detail::faultOf(bool isLate, const kvl::URLResponseRef& response) {
  if (isLate) {
    return kvl::Error(
        kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut,
        {{kvl::NSLocalizedDescriptionKey, translatable("The answer did not come in time.")}});
  }
  if (response && response->isHTTP()) return std::nullopt;
  return kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorBadServerResponse,
                    {{kvl::NSLocalizedDescriptionKey, translatable("The answer is not HTTP.")}});
}

void declareHead(CLI::App& parser, bool& showsHead) {
  parser.add_flag("-i,--include", showsHead, tr("Show status and header fields first"));
}

std::string headText(const kvl::URLResponse& response) {
  std::string text =
      protocolName(response.httpVersion) + " " + std::to_string(*response.httpStatusCode) + "\n";
  for (const auto& [name, value] : response.headers)
    text.append(kvl::printable(name)).append(": ").append(kvl::printable(value)).append("\n");
  return text + "\n";
}

kvl::Dictionary headValue(const kvl::URLResponse& response) {
  kvl::Array headers;
  for (const auto& [name, value] : response.headers) headers.append(kvl::Array{name, value});
  const int status = *response.httpStatusCode;
  kvl::Dictionary value{
      {"url", response.url.absoluteString()}, {"status", status}, {"headers", headers}};
  if (status >= kFirstErrorStatus)
    value.set("error", errorValue(ownError(ExitCode::httpError, statusText(status))));
  return value;
}

ExitCode reportFailure(const kvl::Error& error, const kvl::URLResponseRef& response, bool json) {
  return fail(json, ExitCode::transport, tr("the request failed: %@", kvl::errorText(error)), error,
              headOf(response));
}

ExitCode reportUnusable(std::string_view what, const kvl::Error& error,
                        const kvl::URLResponseRef& response, bool json) {
  if (!hasErrorStatus(response))
    return fail(json, ExitCode::transport, what, error, headOf(response));
  return fail(json, ExitCode::httpError, statusText(*response->httpStatusCode), error,
              headOf(response));
}

ExitCode reportNoDocument(const kvl::Error& error, const kvl::URLResponseRef& response, bool json) {
  const bool isUndecodable =
      response && error.is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError);
  if (!isUndecodable) return reportFailure(error, response, json);
  return reportUnusable(tr("the answer is no JSON document: %@", kvl::errorText(error)), error,
                        response, json);
}

ExitCode withStatus(ExitCode shown, const kvl::URLResponse& response) {
  const int status = *response.httpStatusCode;
  if (shown != ExitCode::ok || status < kFirstErrorStatus) return shown;
  complain(statusText(status));
  return ExitCode::httpError;
}

ExitCode reportBody(const Answer<Body>& answer, const Report& report) {
  if (answer.error) return reportFailure(*answer.error, answer.response, report.json);
  return withStatus(showBody(answer, report), *answer.response);
}

}  // namespace kvlocal
