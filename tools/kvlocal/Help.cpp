#include "tools/kvlocal/Help.h"

#include "tools/kvlocal/Words.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kvlocal {
namespace {

// The parser keeps the groups' names to itself.
constexpr std::array kGroups{translatable("Options"), translatable("Subcommands")};

// What it says, the more special before the more general.
constexpr std::array<std::string_view, 6> kFaults{
    translatable("A subcommand is required"),
    translatable("%@ is required"),
    translatable("The following argument was not expected: %@"),
    translatable("The following arguments were not expected: %@"),
    translatable("%@: %@ required %@ missing"),
    translatable("%@: Should be true/false or a number"),
};

class Formatter final : public CLI::Formatter {
 public:
  Formatter() {
    label("Usage", tr("Usage"));
    label("OPTIONS", tr("OPTIONS"));
    label("SUBCOMMAND", tr("SUBCOMMAND"));
    label("Positionals", tr("Positionals"));
    label("REQUIRED", tr("REQUIRED"));
  }

  [[nodiscard]] std::string make_group(std::string group, bool isPositional,
                                       std::vector<const CLI::Option*> options) const override {
    const bool isOwn = std::ranges::find(kGroups, std::string_view(group)) != kGroups.end();
    return CLI::Formatter::make_group(isOwn ? tr(group) : group, isPositional, std::move(options));
  }
};

// What stands in `text` where `pattern` has %@; absent when that is not its pattern.
std::optional<std::vector<std::string>> argumentsOf(std::string_view text,
                                                    std::string_view pattern) {
  constexpr std::string_view kHole = "%@";
  std::vector<std::string> arguments;
  for (;;) {
    const std::size_t hole = pattern.find(kHole);
    if (!text.starts_with(pattern.substr(0, hole))) return std::nullopt;
    text.remove_prefix(std::min(hole, pattern.size()));
    if (hole == std::string_view::npos)
      return text.empty() ? std::optional(std::move(arguments)) : std::nullopt;
    pattern.remove_prefix(hole + kHole.size());
    const std::string_view next = pattern.substr(0, pattern.find(kHole));
    const std::size_t end = next.empty() ? text.size() : text.find(next);
    if (end == std::string_view::npos) return std::nullopt;
    arguments.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace

void localiseHelp(CLI::App& parser) {
  parser.formatter(std::make_shared<Formatter>());
  parser.set_help_flag("-h,--help", tr("Print this help message and exit"));
}

std::string localisedFault(const CLI::ParseError& error) {
  std::string text = error.what();
  // Behind the option's name stands a sentence of this program's own, in whatever words.
  if (error.get_name() == "ValidationError") return text;
  for (const std::string_view pattern : kFaults)
    if (const auto arguments = argumentsOf(text, pattern))
      return kvl::fillPattern(tr(pattern), *arguments);
  return text;
}

}  // namespace kvlocal
