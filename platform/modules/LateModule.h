// Parts of the library that are loaded when they are first used, for the sake of the libraries
// below them: a host that shows no dates need not have the data of all languages mapped.
#pragma once

#include <atomic>
#include <string>

namespace kvl::modules {

// What the entry `name` of the module in `file` answers to this library's version. The file lies
// beside the library, and nowhere else is it looked for. Null when there is none, when it does not
// load, and when it is of another version; the log tells so once.
class LateModule {
 public:
  constexpr LateModule(const char* file, const char* name) noexcept : file_(file), name_(name) {}
  LateModule(const LateModule&) = delete;
  LateModule& operator=(const LateModule&) = delete;
  // Tried anew with each call until it succeeds: the process may have had no descriptor left. It is
  // never unloaded.
  [[nodiscard]] void* get() noexcept;

 private:
  [[nodiscard]] void* load(std::string& problem) const;

  const char* const file_;
  const char* const name_;
  std::atomic<void*> part_ = nullptr;
  std::atomic<bool> isNoted_ = false;
};

}  // namespace kvl::modules
