#include "tools/kvlocal/Commands.h"
#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/Report.h"

namespace kvlocal {
namespace {

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
  const Mailbox<std::optional<kvl::Data>> mailbox(context);
  const Exchange exchange{.send =
                              [&](KVLSession& session) {
                                return session.request(requestFor(options, context.settings),
                                                       mailbox.handler());
                              },
                          .tellsProgress = options.tellsProgress,
                          .limitsItself = true};
  Answer<std::optional<kvl::Data>> answer;
  const ExitCode result = mailbox.collect(context, exchange, answer);
  if (result != ExitCode::ok) return result;
  return reportBody(answer, {options.showsHead, context.settings.json});
}

Runner prepareGet(CLI::App& parser) {
  const auto options = std::make_shared<GetOptions>();
  parser.add_option("PATH", options->path, "URL, relative to the service's or absolute")
      ->required();
  declareHead(parser, options->showsHead);
  declareProgress(parser, options->tellsProgress);
  return [options](const Context& context) { return runGet(context, *options); };
}

}  // namespace

Command getCommand() {
  return {"get", "Fetch a document and write it to standard output", prepareGet};
}

}  // namespace kvlocal
