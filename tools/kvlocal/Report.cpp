#include "tools/kvlocal/Report.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/UTF8.h"

namespace kvlocal {
namespace {

constexpr int kFirstErrorStatus = 400;

using Body = std::optional<kvl::Data>;

std::string protocolName(int version) {
  if (version == 0) return "HTTP";
  const std::string major = "HTTP/" + std::to_string(version / 10);
  return version < 20 ? major + "." + std::to_string(version % 10) : major;
}

std::string bodyJSON(const Answer<Body>& answer) {
  kvl::Dictionary value = headValue(*answer.response);
  const std::string_view body = answer.content ? answer.content->text() : std::string_view();
  if (isUTF8(body)) {
    value.set("body", body);
  } else {
    value.set("bodyBase64", base64(body));
  }
  return jsonText(value) + '\n';
}

ExitCode showBody(const Answer<Body>& answer, const Report& report) {
  if (report.json) return print(bodyJSON(answer));
  if (report.showsHead) {
    const ExitCode printed = print(headText(*answer.response));
    if (printed != ExitCode::ok) return printed;
  }
  return answer.content ? print(answer.content->text()) : ExitCode::ok;
}

ExitCode showFailure(const kvl::Error& error, const kvl::URLResponseRef& response, bool json) {
  if (!json) return ExitCode::transport;
  kvl::Dictionary value{{"error", errorValue(error)}};
  if (response && response->isHTTP())
    for (const auto& [name, entry] : headValue(*response)) value.set(name, entry);
  const ExitCode printed = printLine(jsonText(value));
  return printed == ExitCode::ok ? ExitCode::transport : printed;
}

}  // namespace

void declareHead(CLI::App& parser, bool& showsHead) {
  parser.add_flag("-i,--include", showsHead, "Show status and header fields first");
}

std::string headText(const kvl::URLResponse& response) {
  std::string text =
      protocolName(response.httpVersion) + " " + std::to_string(*response.httpStatusCode) + "\n";
  for (const auto& [name, value] : response.headers)
    text.append(name).append(": ").append(value).append("\n");
  return text + "\n";
}

kvl::Dictionary headValue(const kvl::URLResponse& response) {
  kvl::Array headers;
  for (const auto& [name, value] : response.headers) headers.append(kvl::Array{name, value});
  return {{"url", response.url.absoluteString()},
          {"status", *response.httpStatusCode},
          {"headers", headers}};
}

ExitCode reportFailure(const kvl::Error& error, const kvl::URLResponseRef& response, bool json) {
  complain("the request failed: " + errorText(error));
  return showFailure(error, response, json);
}

ExitCode reportUnusable(std::string_view what, const kvl::Error& error,
                        const kvl::URLResponseRef& response, bool json) {
  complain(what);
  const ExitCode shown = showFailure(error, response, json);
  if (shown != ExitCode::transport) return shown;
  const ExitCode ofStatus = withStatus(ExitCode::ok, *response);
  return ofStatus == ExitCode::ok ? shown : ofStatus;
}

ExitCode reportNoDocument(const kvl::Error& error, const kvl::URLResponseRef& response, bool json) {
  const bool isUndecodable =
      response && error.is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError);
  if (!isUndecodable) return reportFailure(error, response, json);
  return reportUnusable("the answer is no JSON document: " + errorText(error), error, response,
                        json);
}

ExitCode withStatus(ExitCode shown, const kvl::URLResponse& response) {
  const int status = *response.httpStatusCode;
  if (shown != ExitCode::ok || status < kFirstErrorStatus) return shown;
  complain("the service answered with HTTP status " + std::to_string(status));
  return ExitCode::httpError;
}

ExitCode reportBody(const Answer<Body>& answer, const Report& report) {
  if (answer.error) return reportFailure(*answer.error, answer.response, report.json);
  return withStatus(showBody(answer, report), *answer.response);
}

}  // namespace kvlocal
