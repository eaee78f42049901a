#include "tests/support/ProcessFigures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace kvltest {
namespace {

// Entries may go while they are counted.
std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  std::error_code gone;
  for (std::filesystem::directory_iterator entry(folder, gone), end; !gone && entry != end;
       entry.increment(gone)) {
    ++count;
  }
  return count;
}

}  // namespace

std::size_t threadCount() {
  return entriesOf("/proc/self/task");
}

std::size_t descriptorCount() {
  // The iterator's own is among them.
  return entriesOf("/proc/self/fd") - 1;
}

std::int64_t residentMemory() {
  std::int64_t all = 0;
  std::int64_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

std::int64_t peakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::int64_t kibibytes = 0;
    if (word == "VmHWM:" && status >> kibibytes) return kibibytes * 1024;
  }
  return 0;
}

bool forgetPeakMemory() {
  std::ofstream reset("/proc/self/clear_refs");
  reset << "5" << std::flush;
  return reset.good();
}

}  // namespace kvltest
