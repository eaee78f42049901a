// The words of the parser of command lines in the user's language.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kvlocal {

// Makes the help speak it. Before commands are added to `parser`, which take over what it has.
void localiseHelp(CLI::App& parser);

// What the parser says of a command line that is wrong.
[[nodiscard]] std::string localisedFault(const CLI::ParseError& error);

}  // namespace kvlocal
