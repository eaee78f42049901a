// A fuzz target: what is done with each input of one kind. All targets are in one program.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace kvl::fuzz {

using Input = std::span<const std::uint8_t>;

[[nodiscard]] inline std::string_view textOf(Input input) {
  return {reinterpret_cast<const char*>(input.data()), input.size()};
}

// Ends the program when something does not hold.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "it does not hold that %s\n", what);
  std::abort();
}

// Known by its name, which is that of its folder in fuzz/corpus, from its making on. Each is an
// object of static storage in the file that says what the target does.
class Target {
 public:
  // Ends the program when what it tries out is wrong.
  using Function = void (*)(Input input);

  Target(std::string_view name, Function function) noexcept
      : name_(name), function_(function), next_(newest_) {
    newest_ = this;
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  // Null when there is none.
  [[nodiscard]] static const Target* named(std::string_view name) noexcept {
    const Target* found = newest_;
    while (found != nullptr && found->name_ != name) found = found->next_;
    return found;
  }

  void run(Input input) const { function_(input); }

 private:
  static inline constinit const Target* newest_ = nullptr;

  std::string_view name_;
  Function function_;
  const Target* next_;
};

}  // namespace kvl::fuzz
