// The command form, which submits a form that the command line describes.

#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Input.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLInputFile.h>
#include <local/platform/Text.h>

#include <algorithm>
#include <map>
#include <vector>

namespace kvlocal {
namespace {

using Inputs = std::vector<std::variant<TextInput, FileInput>>;

struct FormOptions {
  std::string path;
  std::vector<std::string> texts;
  std::vector<std::string> files;
  bool showsHead = false;
  bool tellsProgress = false;
};

// An empty text when the framework would send the form to the service.
std::string pathFault(const std::string& path) {
  if (!path.starts_with("https://")) return {};
  return tr("%@ would be opened in a browser; give a URL relative to the service's",
            kvl::jsonText(path));
}

template <class Input>
CLI::Validator checkOf(std::variant<Input, std::string> (*parse)(std::string_view)) {
  return {[parse](const std::string& text) {
            const auto parsed = parse(text);
            const auto* const fault = std::get_if<std::string>(&parsed);
            return fault ? *fault : std::string();
          },
          ""};
}

ExitCode appendInput(const Context&, const TextInput& input, kvl::Array& inputs) {
  inputs.append(kvl::Dictionary{{"name", input.name}, {"value", input.value}});
  return ExitCode::ok;
}

ExitCode appendInput(const Context& context, const FileInput& input, kvl::Array& inputs) {
  std::shared_ptr<KVLInputFile> file;
  const ExitCode result = readInput(context, input.path, file);
  if (result != ExitCode::ok) return result;
  file->setFilename(input.filename);
  file->setContentType(input.contentType);
  inputs.append(kvl::Dictionary{{"name", input.name}, {"value", file}});
  return ExitCode::ok;
}

ExitCode readInputs(const Context& context, const Inputs& given, kvl::Array& inputs) {
  for (const auto& input : given) {
    const ExitCode result =
        std::visit([&](const auto& known) { return appendInput(context, known, inputs); }, input);
    if (result != ExitCode::ok) return result;
  }
  return ExitCode::ok;
}

bool isStandardInput(const std::variant<TextInput, FileInput>& input) {
  const auto* const file = std::get_if<FileInput>(&input);
  return file != nullptr && file->path == kStandardInput;
}

ExitCode runForm(const Context& context, const FormOptions& options, const Inputs& given) {
  if (std::ranges::count_if(given, isStandardInput) > 1)
    return fail(context.settings.json, ExitCode::usage,
                tr("standard input ends with the first file that is read from it; name it once"));
  kvl::Array inputs;
  const ExitCode read = readInputs(context, given, inputs);
  if (read != ExitCode::ok) return read;
  const Mailbox<Body> mailbox(context);
  const Exchange exchange{.send =
                              [&](KVLSession& session) {
                                return KVLEncoding::submitForm(
                                           kvl::Dictionary{}, inputs,
                                           KVLEncoding::RelativePath(options.path), session,
                                           mailbox.handler())
                                    .task();
                              },
                          .tellsProgress = options.tellsProgress};
  Answer<Body> answer;
  const ExitCode result = mailbox.collect(context, exchange, answer);
  if (result != ExitCode::ok) return result;
  return reportBody(answer, {options.showsHead, context.settings.json});
}

// The inputs in the order in which the command line has them, whatever their kind.
Inputs inputsOf(const CLI::App& parser, const CLI::Option* texts, const CLI::Option* files) {
  Inputs inputs;
  std::map<const CLI::Option*, std::size_t> taken;
  for (const CLI::Option* const option : parser.parse_order()) {
    if (option != texts && option != files) continue;
    const std::string& text = option->results().at(taken[option]++);
    if (option == texts) inputs.emplace_back(std::get<TextInput>(parseTextInput(text)));
    if (option == files) inputs.emplace_back(std::get<FileInput>(parseFileInput(text)));
  }
  return inputs;
}

// One value for each option, so that the word that follows is not taken for another value.
CLI::Option* declareInputs(CLI::App& parser, const char* name, std::vector<std::string>& values,
                           const std::string& help) {
  return parser.add_option(name, values, help)->allow_extra_args(false);
}

Runner prepareForm(CLI::App& parser) {
  const auto options = std::make_shared<FormOptions>();
  parser.add_option("PATH", options->path, tr("URL, relative to the service's"))
      ->required()
      ->check(pathFault);
  const auto* const texts =
      declareInputs(parser, "--input", options->texts, tr("An input with a text; may be repeated"))
          ->type_name("NAME=VALUE")
          ->check(checkOf(parseTextInput));
  const auto* const files =
      declareInputs(parser, "--file", options->files,
                    tr("An input with a file, - for standard input; may be repeated"))
          ->type_name("NAME=@PATH[;type=TYPE][;filename=NAME]")
          ->check(checkOf(parseFileInput));
  declareHead(parser, options->showsHead);
  declareProgress(parser, options->tellsProgress);
  return [&parser, options, texts, files](const Context& context) {
    return runForm(context, *options, inputsOf(parser, texts, files));
  };
}

}  // namespace

Command formCommand() {
  return {"form", translatable("Submit a form and write the answer to standard output"),
          prepareForm};
}

}  // namespace kvlocal
