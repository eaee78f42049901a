// The command image, which fetches an image, tells its size and keeps it.

#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingSession.h>
#include <local/platform/Text.h>

namespace kvlocal {
namespace {

using ImageRef = std::shared_ptr<kvl::Image>;

constexpr std::string_view kStandardOutput = "-";

struct ImageOptions {
  std::string path;
  std::optional<std::string> file;
  std::string size;
  bool tellsProgress = false;

  [[nodiscard]] bool writesToOutput() const { return file == kStandardOutput; }
};

kvl::Value sizeValue(kvl::Size size) {
  return kvl::Dictionary{{"width", size.width}, {"height", size.height}};
}

std::string imageJSON(const kvl::Image& image, const kvl::URLResponse& response) {
  kvl::Dictionary value = headValue(response);
  value.set("size", sizeValue(image.size()));
  value.set("naturalSize", sizeValue(image.naturalSize()));
  value.set("template", image.isTemplate());
  value.set("bytes", image.data().size());
  return kvl::jsonText(value);
}

std::string imageText(const kvl::Image& image) {
  return field(tr("size"), sizeText(image.size())) +
         field(tr("natural"), sizeText(image.naturalSize())) +
         field(tr("template"), image.isTemplate() ? tr("yes") : tr("no")) +
         field(tr("bytes"), std::to_string(image.data().size()));
}

ExitCode show(const kvl::Image& image, const kvl::URLResponse& response,
              const ImageOptions& options, bool json) {
  if (options.writesToOutput()) return print(image.data().text());
  if (options.file) {
    const auto fault = writeFile(*options.file, image.data().text());
    if (fault) return fail(json, ExitCode::output, *fault);
  }
  return json ? printLine(imageJSON(image, response)) : print(imageText(image));
}

kvl::Error noImageError() {
  return {kvl::NSURLErrorDomain,
          kvl::NSURLErrorCannotDecodeContentData,
          {{kvl::NSLocalizedDescriptionKey, translatable("The answer holds no image.")}}};
}

ExitCode reportImage(const Answer<ImageRef>& answer, const ImageOptions& options, bool json) {
  if (answer.error) return reportFailure(*answer.error, answer.response, json);
  if (!answer.content)
    return reportUnusable(tr("the answer holds no image"), noImageError(), answer.response, json);
  return withStatus(show(*answer.content, *answer.response, options, json), *answer.response);
}

ExitCode runImage(const Context& context, const ImageOptions& options) {
  const bool json = context.settings.json;
  if (json && options.writesToOutput()) {
    complain(tr("--json and an image cannot both go to standard output"));
    return ExitCode::usage;
  }
  const Mailbox<ImageRef> mailbox(context);
  const Exchange exchange{.send =
                              [&](KVLSession& session) {
                                return KVLEncoding::imageFromSession(
                                           session, KVLEncoding::RelativePath(options.path),
                                           sizeOf(options.size), mailbox.handler(), onOtherThread())
                                    .task();
                              },
                          .tellsProgress = options.tellsProgress};
  Answer<ImageRef> answer;
  const ExitCode result = mailbox.collect(context, exchange, answer);
  return result == ExitCode::ok ? reportImage(answer, options, json) : result;
}

Runner prepareImage(CLI::App& parser) {
  const auto options = std::make_shared<ImageOptions>();
  parser.add_option("PATH", options->path, tr("URL, relative to the service's or absolute"))
      ->required();
  parser
      .add_option("-o,--output", options->file,
                  tr("File for the image as it came, - for standard output"))
      ->type_name("FILE");
  parser.add_option("--size", options->size, tr("Size in points to scale it to"))
      ->type_name("WxH")
      ->check(sizeFault);
  declareProgress(parser, options->tellsProgress);
  return [options](const Context& context) { return runImage(context, *options); };
}

}  // namespace

Command imageCommand() {
  return {"image", translatable("Fetch an image, tell its size and keep it"), prepareImage};
}

}  // namespace kvlocal
