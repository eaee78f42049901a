#include "tools/kvlocal/ProgressNote.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace kvlocal {
namespace {

constexpr std::chrono::milliseconds kFirst{500};
constexpr std::chrono::seconds kInterval{1};
constexpr std::string_view kEraseLine = "\r\033[K";

void write(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

ProgressNote::ProgressNote(bool forced) : isTerminal_(isatty(STDERR_FILENO) == 1) {
  if (forced || isTerminal_) next_ = start_ + kFirst;
}

ProgressNote::~ProgressNote() {
  if (isShown_ && isTerminal_) write(kEraseLine);
}

void ProgressNote::show(std::string_view phase) {
  const auto now = std::chrono::steady_clock::now();
  next_ = now + kInterval;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
  std::string text = "kvlocal: " + std::string(phase);
  if (seconds > 0) text += ", " + std::to_string(seconds) + " s";
  write(isTerminal_ ? std::string(kEraseLine) + text : text + "\n");
  isShown_ = true;
}

}  // namespace kvlocal
