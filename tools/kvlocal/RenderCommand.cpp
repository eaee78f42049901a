// The command render, which shows dates, times and durations in the user's locale. It needs neither
// notary nor service.

#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Input.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingLocale.h>
#include <local/platform/Log.h>
#include <local/platform/Text.h>

namespace kvlocal {
namespace {

struct RenderOptions {
  std::string text;
  std::string locales;
};

ExitCode show(const std::string& rendered, bool json) {
  if (json) return printLine(kvl::jsonText(kvl::Dictionary{{"text", rendered}}));
  return printLine(escaped(rendered));
}

ExitCode runRender(const Context& context, const RenderOptions& options) {
  std::optional<kvl::Value> locales;
  const ExitCode read = readDocument(context, options.locales, locales);
  if (read != ExitCode::ok) return read;
  // Rendering reports mistakes in the log only.
  kvl::setLogSink(complain);
  return show(KVLEncoding::stringWithLocales(options.text, locales.value_or(kvl::Value())),
              context.settings.json);
}

Runner prepareRender(CLI::App& parser) {
  const auto options = std::make_shared<RenderOptions>();
  parser.add_option("TEXT", options->text, tr("Template, with the tokens that the entries name"))
      ->required();
  parser
      .add_option("--locales", options->locales,
                  tr("File of JSON text with the array of entries, - for standard input"))
      ->type_name("FILE")
      ->required();
  return [options](const Context& context) { return runRender(context, *options); };
}

}  // namespace

Command renderCommand() {
  return {"render",
          translatable("Show a text with dates, times and durations in the user's locale"),
          prepareRender};
}

}  // namespace kvlocal
