#include "tests/images/DecoderProcesses.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace kvltest {
namespace {

constexpr std::string_view kName = "kvlocal-image-d";  // as much of it as the system keeps

struct Process {
  pid_t parent = 0;
  std::string name;
  DecoderProcess figures;
};

// proc(5): id (name) state parent ... times from field 14 on, and resident pages in field 24.
std::optional<Process> readProcess(const std::filesystem::path& folder) {
  std::ifstream file(folder / "stat");
  std::string text;
  if (!std::getline(file, text)) return std::nullopt;
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (close == std::string::npos || open > close) return std::nullopt;
  Process process;
  process.figures.id = static_cast<pid_t>(std::stol(text));
  process.name = text.substr(open + 1, close - open - 1);
  std::istringstream fields(text.substr(close + 2));
  std::string state;
  fields >> state >> process.parent;
  if (state == "Z" || state == "X") return std::nullopt;
  std::string skipped;
  for (int field = 5; field < 14; ++field) fields >> skipped;
  std::int64_t user = 0;
  std::int64_t system = 0;
  fields >> user >> system;
  for (int field = 16; field < 24; ++field) fields >> skipped;
  std::int64_t pages = 0;
  fields >> pages;
  process.figures.processorTime =
      std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
  process.figures.residentBytes = pages * sysconf(_SC_PAGESIZE);
  return process;
}

std::vector<Process> processesOfThatName() {
  std::vector<Process> found;
  std::error_code gone;
  for (std::filesystem::directory_iterator entry("/proc", gone), end; !gone && entry != end;
       entry.increment(gone)) {
    const auto name = entry->path().filename().string();
    if (name.front() < '0' || name.front() > '9') continue;
    auto process = readProcess(entry->path());
    if (process && process->name == kName) found.push_back(std::move(*process));
  }
  return found;
}

}  // namespace

std::vector<DecoderProcess> decoderProcesses() {
  const auto all = processesOfThatName();
  std::vector<DecoderProcess> found;
  for (const auto& process : all) {
    if (process.parent == getpid()) found.push_back(process.figures);
  }
  const auto parents = found;
  for (const auto& process : all) {
    const bool isOurs = std::ranges::any_of(
        parents, [&](const DecoderProcess& parent) { return parent.id == process.parent; });
    if (!isOurs) continue;
    found.push_back(process.figures);
    found.back().isWorker = true;
  }
  return found;
}

}  // namespace kvltest
