// What the program tells its caller: standard output, standard error and the exit status.
#pragma once

#include "tools/kvlocal/Words.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

// The exit status. The manual page and --help list the same numbers.
enum class ExitCode : int {
  ok = 0,
  httpError = 1,       // the service answered a request with status 400 or above
  usage = 2,           // the command line is wrong, or a file that it names cannot be sent
  notEstablished = 3,  // no identity: the notary refused, failed or took too long
  transport = 4,       // a request failed, or its answer is not what was asked for
  noRequest = 5,       // csr, identity: keys or signing request could not be made
  output = 6,          // output or files could not be written, or nobody reads it
  noItem = 7,          // menu: there is no such item, or it cannot be activated
  noPeers = 8,         // dev: bus, notary or service did not start, or ended by itself
  interrupted = 130,   // ended by the user before it was done
};

inline constexpr const char* kExitCodesHelp = translatable(
    "Exit status:\n"
    "  0    done\n"
    "  1    the service answered a request with HTTP status 400 or above\n"
    "  2    the command line is wrong, or a file that it names cannot be sent\n"
    "  3    no identity: the notary refused, failed or took too long\n"
    "  4    a request failed before a whole answer was there, or its answer is not "
    "what was asked for\n"
    "  5    csr, identity: keys or signing request could not be made\n"
    "  6    output or files could not be written, or nobody reads it any more\n"
    "  7    menu: there is no such item, or it cannot be activated\n"
    "  8    dev: the bus, the notary or the service could not be started, or ended\n"
    "  130  interrupted before it was done");

// Writes the bytes as they are and flushes. `ok`, or `output` after it has said why.
[[nodiscard]] ExitCode print(std::string_view bytes);

// `print` with a line feed at the end.
[[nodiscard]] ExitCode printLine(std::string_view line);

// Says that standard output cannot be written, and why as errno has it. `output`.
[[nodiscard]] ExitCode giveUpOutput(int error);

// Creates or replaces a file. Absent, or a sentence that says why that failed.
[[nodiscard]] std::optional<std::string> writeFile(const std::string& path, std::string_view bytes);

// The columns of standard output's terminal; of another output what COLUMNS says, or 80.
[[nodiscard]] std::size_t outputWidth();

// Writes "kvlocal: " and the message to standard error, as one line.
void complain(std::string_view message);

}  // namespace kvlocal
