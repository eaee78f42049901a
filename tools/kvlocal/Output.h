// Standard output and standard error.
#pragma once

#include "tools/kvlocal/ExitCode.h"

#include <string>
#include <string_view>

namespace kvlocal {

// Writes the bytes as they are and flushes. `ok`, or `output` after it has said why.
[[nodiscard]] ExitCode print(std::string_view bytes);

// `print` with a line feed at the end.
[[nodiscard]] ExitCode printLine(std::string_view line);

// Says that standard output cannot be written, and why as errno has it. `output`.
[[nodiscard]] ExitCode giveUpOutput(int error);

// Makes or replaces a file. `ok`, or `output` after it has said why that failed.
[[nodiscard]] ExitCode writeFile(const std::string& path, std::string_view bytes);

// Writes "kvlocal: " and the message to standard error.
void complain(std::string_view message);

}  // namespace kvlocal
