// The commands that fetch or submit a document: get and submit.
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Input.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Text.h>

namespace kvlocal {
namespace {

using Root = std::optional<kvl::Value>;

struct SubmitOptions {
  std::string path;
  std::string data;
  bool showsHead = false;
  bool tellsProgress = false;
};

ExitCode readRoot(const Context& context, const std::string& path, Root& root) {
  const ExitCode result = readDocument(context, path, root);
  if (result != ExitCode::ok || root) return result;
  return fail(context.settings.json, ExitCode::usage,
              tr("%@ is null, which cannot be submitted", kvl::jsonText(path)));
}

ExitCode show(const Answer<Root>& answer, const Report& report) {
  if (report.json) {
    kvl::Dictionary value = headValue(*answer.response);
    if (answer.content) value.set("document", *answer.content);
    return printLine(kvl::jsonText(value));
  }
  std::string text = report.showsHead ? headText(*answer.response) : std::string();
  if (answer.content) text += kvl::jsonText(*answer.content) + '\n';
  return print(text);
}

ExitCode reportRoot(const Answer<Root>& answer, const Report& report) {
  if (answer.error) return reportNoDocument(*answer.error, answer.response, report.json);
  return withStatus(show(answer, report), *answer.response);
}

ExitCode runSubmit(const Context& context, const SubmitOptions& options) {
  Root root;
  const ExitCode read = readRoot(context, options.data, root);
  if (read != ExitCode::ok) return read;
  const Mailbox<Root> mailbox(context);
  const Exchange exchange{.send =
                              [&](KVLSession& session) {
                                return KVLEncoding::submit(*root,
                                                           KVLEncoding::RelativePath(options.path),
                                                           session, mailbox.handler())
                                    .task();
                              },
                          .tellsProgress = options.tellsProgress};
  Answer<Root> answer;
  const ExitCode result = mailbox.collect(context, exchange, answer);
  if (result != ExitCode::ok) return result;
  return reportRoot(answer, {options.showsHead, context.settings.json});
}

Runner prepareSubmit(CLI::App& parser) {
  const auto options = std::make_shared<SubmitOptions>();
  parser.add_option("PATH", options->path, tr("URL, relative to the service's or absolute"))
      ->required();
  parser.add_option("--data", options->data, tr("File of JSON text, - for standard input"))
      ->type_name("FILE")
      ->required();
  declareHead(parser, options->showsHead);
  declareProgress(parser, options->tellsProgress);
  return [options](const Context& context) { return runSubmit(context, *options); };
}

struct GetOptions {
  std::string path;
  bool showsHead = false;
  bool tellsProgress = false;
};

kvl::URLRequest requestFor(const GetOptions& options, const Settings& settings) {
  kvl::URLRequest request(options.path);
  if (settings.timeoutSeconds) request.setTimeoutInterval(settings.limit());
  return request;
}

ExitCode runGet(const Context& context, const GetOptions& options) {
  const Mailbox<Body> mailbox(context);
  const Exchange exchange{.send =
                              [&](KVLSession& session) {
                                return session.request(requestFor(options, context.settings),
                                                       mailbox.handler());
                              },
                          .tellsProgress = options.tellsProgress,
                          .limitsItself = true};
  Answer<Body> answer;
  const ExitCode result = mailbox.collect(context, exchange, answer);
  if (result != ExitCode::ok) return result;
  return reportBody(answer, {options.showsHead, context.settings.json});
}

Runner prepareGet(CLI::App& parser) {
  const auto options = std::make_shared<GetOptions>();
  parser.add_option("PATH", options->path, tr("URL, relative to the service's or absolute"))
      ->required();
  declareHead(parser, options->showsHead);
  declareProgress(parser, options->tellsProgress);
  return [options](const Context& context) { return runGet(context, *options); };
}

}  // namespace

Command submitCommand() {
  return {"submit", translatable("Post a JSON document and show the one that comes back"),
          prepareSubmit};
}

Command getCommand() {
  return {"get", translatable("Fetch a document and write it to standard output"), prepareGet};
}

}  // namespace kvlocal
