#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Commands.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/UTF8.h"

#include <utility>

namespace kvlocal {
namespace {

constexpr int kFirstErrorStatus = 400;

struct GetOptions {
  std::string path;
  bool showsHeaders = false;
};

struct Answer {
  bool complete = false;
  std::optional<kvl::Data> body;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};

std::string protocolName(int version) {
  if (version == 0) return "HTTP";
  const std::string major = "HTTP/" + std::to_string(version / 10);
  return version < 20 ? major + "." + std::to_string(version % 10) : major;
}

std::string headText(const kvl::URLResponse& response) {
  std::string text =
      protocolName(response.httpVersion) + " " + std::to_string(*response.httpStatusCode) + "\n";
  for (const auto& [name, value] : response.headers)
    text.append(name).append(": ").append(value).append("\n");
  return text + "\n";
}

std::string answerJSON(const Answer& answer) {
  kvl::Array headers;
  for (const auto& [name, value] : answer.response->headers)
    headers.append(kvl::Array{name, value});
  kvl::Dictionary value{{"url", answer.response->url.absoluteString()},
                        {"status", *answer.response->httpStatusCode},
                        {"headers", headers}};
  const std::string_view body = answer.body ? answer.body->text() : std::string_view();
  if (isUTF8(body)) {
    value.set("body", body);
  } else {
    value.set("bodyBase64", base64(body));
  }
  return jsonText(value) + '\n';
}

kvl::URLRequest requestFor(const GetOptions& options, const Settings& settings) {
  kvl::URLRequest request(options.path);
  if (settings.timeoutSeconds) request.setTimeoutInterval(settings.limit());
  return request;
}

// Sends the request and waits for the whole answer.
Rendezvous::Result fetch(const Context& context, KVLSession& session, const GetOptions& options,
                         Answer& answer) {
  const auto rendezvous = context.rendezvous;
  const auto received = std::make_shared<Answer>();
  const auto task = session.request(
      requestFor(options, context.settings),
      [rendezvous, received](std::optional<kvl::Data> body, kvl::URLResponseRef response,
                             std::optional<kvl::Error> error) {
        rendezvous->change(
            [&] { *received = {true, std::move(body), std::move(response), std::move(error)}; });
      });
  const auto result = rendezvous->wait({}, [&] { return received->complete; });
  if (result == Rendezvous::Result::met) answer = *received;
  if (result == Rendezvous::Result::interrupted && task) task->cancel();
  return result;
}

ExitCode show(const Answer& answer, const GetOptions& options, bool json) {
  if (json) return print(answerJSON(answer));
  if (options.showsHeaders) {
    const ExitCode printed = print(headText(*answer.response));
    if (printed != ExitCode::ok) return printed;
  }
  return answer.body ? print(answer.body->text()) : ExitCode::ok;
}

ExitCode refuse(const kvl::Error& error, bool json) {
  complain("the request failed: " + errorText(error));
  if (!json) return ExitCode::transport;
  const ExitCode printed = printLine(jsonText(kvl::Dictionary{{"error", errorValue(error)}}));
  return printed == ExitCode::ok ? ExitCode::transport : printed;
}

ExitCode report(const Answer& answer, const GetOptions& options, bool json) {
  if (answer.error) return refuse(*answer.error, json);
  if (!answer.response || !answer.response->isHTTP()) {
    complain("the request failed: the answer is not HTTP");
    return ExitCode::transport;
  }
  const ExitCode shown = show(answer, options, json);
  const int status = *answer.response->httpStatusCode;
  if (shown != ExitCode::ok || status < kFirstErrorStatus) return shown;
  complain("the service answered with HTTP status " + std::to_string(status));
  return ExitCode::httpError;
}

ExitCode runGet(const Context& context, const GetOptions& options) {
  Client client(context);
  const ExitCode established = client.establish();
  if (established == ExitCode::notEstablished) complain(client.failureText());
  if (established != ExitCode::ok) return established;
  Answer answer;
  if (fetch(context, client.session(), options, answer) == Rendezvous::Result::interrupted)
    return ExitCode::interrupted;
  return report(answer, options, context.settings.json);
}

Runner prepareGet(CLI::App& parser) {
  const auto options = std::make_shared<GetOptions>();
  parser.add_option("PATH", options->path, "URL, relative to the service's or absolute")
      ->required();
  parser.add_flag("-i,--include", options->showsHeaders, "Show status and header fields first");
  return [options](const Context& context) { return runGet(context, *options); };
}

}  // namespace

Command getCommand() {
  return {"get", "Fetch a document and write it to standard output", prepareGet};
}

}  // namespace kvlocal
