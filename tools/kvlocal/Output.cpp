#include "tools/kvlocal/Output.h"

#include "tools/kvlocal/JSON.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kvlocal {

ExitCode print(std::string_view bytes) {
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
  if (written && std::fflush(stdout) == 0) return ExitCode::ok;
  return giveUpOutput(errno);
}

ExitCode giveUpOutput(int error) {
  complain(std::string("standard output cannot be written: ") + std::strerror(error));
  return ExitCode::output;
}

ExitCode printLine(std::string_view line) {
  return print(std::string(line) + '\n');
}

ExitCode writeFile(const std::string& path, std::string_view bytes) {
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  bool written =
      file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  int error = errno;
  if (file != nullptr && std::fclose(file) != 0 && written) {
    written = false;
    error = errno;
  }
  if (written) return ExitCode::ok;
  complain(jsonText(path) + " cannot be written: " + std::strerror(error));
  return ExitCode::output;
}

void complain(std::string_view message) {
  const std::string line = "kvlocal: " + std::string(message) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace kvlocal
