// What the program's exit status means. The manual page and --help list the same numbers.
#pragma once

namespace kvlocal {

enum class ExitCode : int {
  ok = 0,
  httpError = 1,       // get: the service answered with status 400 or above
  usage = 2,           // the command line is wrong
  notEstablished = 3,  // no identity: the notary refused, failed or took too long
  transport = 4,       // get: the request failed before a whole answer was there
  noRequest = 5,       // csr: keys or signing request could not be made
  output = 6,          // standard output could not be written, or nobody reads it
  interrupted = 130,   // ended by the user before it was done
};

inline constexpr const char* kExitCodesHelp =
    "Exit status:\n"
    "  0    done\n"
    "  1    get: the service answered with HTTP status 400 or above\n"
    "  2    the command line is wrong\n"
    "  3    no identity: the notary refused, failed or took too long\n"
    "  4    get: the request failed before a whole answer was there\n"
    "  5    csr: keys or signing request could not be made\n"
    "  6    standard output could not be written, or nobody reads it any more\n"
    "  130  interrupted before it was done";

}  // namespace kvlocal
