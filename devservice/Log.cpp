#include "devservice/Log.h"

#include <local/platform/PrintableText.h>

#include <time.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <string>

namespace devservice {
namespace {

std::string& logName() {
  static std::string name;
  return name;
}

std::string timestamp() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto fraction = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  std::array<char, 8> suffix{};
  std::snprintf(suffix.data(), suffix.size(), ".%03d", static_cast<int>(fraction));
  return std::string(text.data()) + suffix.data();
}

}  // namespace

void setLogName(std::string_view name) {
  logName() = name;
}

void log(std::string_view text) {
  const std::string line = timestamp() + " " + logName() + ": " + kvl::printable(text) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);  // one write, hence one whole line
}

}  // namespace devservice
