#include "platform/security/ProcessMarks.h"

#include "platform/security/Operations.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <vector>

namespace kvl::security {
namespace {

constexpr std::string_view kVersion = "1";

std::string readText(const std::string& path) {
  std::string text;
  std::getline(std::ifstream(path), text, '\0');
  return text;
}

std::string readLink(const char* path) {
  std::array<char, 64> buffer{};
  const ssize_t size = readlink(path, buffer.data(), buffer.size());
  return size < 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(size));
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

template <class Number>
std::optional<Number> number(std::string_view text) {
  Number value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

struct ProcessStatus {
  std::string number;
  std::string start;
  bool hasEnded = false;  // but has not been waited for
};

// See proc(5), /proc/[pid]/stat. Absent when there is no such process or it may not be seen.
std::optional<ProcessStatus> readProcess(const std::string& name) {
  const std::string text = readText("/proc/" + name + "/stat");
  // The program's name, in parentheses, may hold anything.
  const std::size_t nameBegin = text.find(" (");
  const std::size_t nameEnd = text.rfind(") ");
  if (nameBegin == std::string::npos || nameEnd == std::string::npos) return std::nullopt;
  const auto fields = split(std::string_view(text).substr(nameEnd + 2), ' ');
  constexpr std::size_t kState = 0;
  constexpr std::size_t kThreads = 17;
  constexpr std::size_t kStart = 19;
  if (fields.size() <= kStart) return std::nullopt;
  // A main thread that has ended while others go on looks dead, too.
  const bool isDead = (fields[kState] == "Z" || fields[kState] == "X") &&
                      (fields[kThreads] == "0" || fields[kThreads] == "1");
  return ProcessStatus{text.substr(0, nameBegin), std::string(fields[kStart]), isDead};
}

// This process's own, unless /proc is that of another namespace and shows other processes.
std::optional<ProcessStatus> readSelf() {
  std::optional<ProcessStatus> self = readProcess("self");
  if (self && self->number != std::to_string(getpid())) return std::nullopt;
  return self;
}

// Hashed, which makes it short. Empty when it cannot be told.
std::string currentPlace() {
  if (!readSelf()) return {};
  const std::string boot = readText("/proc/sys/kernel/random/boot_id");
  const std::string processes = readLink("/proc/self/ns/pid");
  if (boot.empty() || processes.empty()) return {};
  const std::string whole = boot + processes + readLink("/proc/self/ns/time");
  const Bytes hash = sha256({reinterpret_cast<const std::uint8_t*>(whole.data()), whole.size()});
  std::uint64_t place = 0;
  std::memcpy(&place, hash.data(), sizeof place);
  std::array<char, 16> text{};
  return {text.data(), std::to_chars(text.begin(), text.end(), place, 16).ptr};
}

}  // namespace

ProcessMarks::ProcessMarks() : place_(currentPlace()) {}

std::optional<std::string> ProcessMarks::own() const {
  const std::optional<ProcessStatus> self = readSelf();
  if (place_.empty() || !self) return std::nullopt;
  return std::string(kVersion) + "." + place_ + "." + self->number + "." + self->start;
}

bool ProcessMarks::isOfEndedProcess(std::string_view mark) const {
  const auto parts = split(mark, '.');
  if (parts.size() != 4 || parts[0] != kVersion || place_.empty() || parts[1] != place_)
    return false;
  const std::optional<pid_t> process = number<pid_t>(parts[2]);
  if (!process || *process <= 0 || !number<std::uint64_t>(parts[3])) return false;
  if (kill(*process, 0) != 0 && errno == ESRCH) return true;
  // One that is there and hidden may well be the maker.
  const std::optional<ProcessStatus> status = readProcess(std::to_string(*process));
  return status && (status->hasEnded || status->start != parts[3]);
}

}  // namespace kvl::security
