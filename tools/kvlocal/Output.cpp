#include "tools/kvlocal/Output.h"

#include "tools/kvlocal/Words.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kvlocal {

ExitCode print(std::string_view bytes) {
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
  if (written && std::fflush(stdout) == 0) return ExitCode::ok;
  return giveUpOutput(errno);
}

ExitCode giveUpOutput(int error) {
  complain(tr("standard output cannot be written: %@", systemWords(error)));
  return ExitCode::output;
}

ExitCode printLine(std::string_view line) {
  return print(std::string(line) + '\n');
}

std::optional<std::string> writeFile(const std::string& path, std::string_view bytes) {
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  bool written =
      file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  int error = errno;
  if (file != nullptr && std::fclose(file) != 0 && written) {
    written = false;
    error = errno;
  }
  if (written) return std::nullopt;
  return tr("%@ cannot be written: %@", kvl::jsonText(path), systemWords(error));
}

std::size_t outputWidth() {
  constexpr std::size_t kUsual = 80;
  constexpr std::size_t kNarrowest = 20;
  winsize size{};
  std::size_t columns = 0;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
    columns = size.ws_col;
  } else if (const char* const text = std::getenv("COLUMNS")) {
    std::from_chars(text, text + std::strlen(text), columns);
  }
  return columns == 0 ? kUsual : std::max(columns, kNarrowest);
}

void complain(std::string_view message) {
  const std::string line = "kvlocal: " + kvl::printable(message) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace kvlocal
