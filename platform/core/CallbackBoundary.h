// What C libraries call must not throw: their frames cannot be unwound.
#pragma once

#include <exception>
#include <utility>

namespace kvl::core {

// What `function` returns, or `otherwise` when it throws: memory has run out, as a rule.
template <class Result, class Function>
[[nodiscard]] Result withoutExceptions(Result otherwise, Function&& function) noexcept {
  try {
    return std::forward<Function>(function)();
  } catch (const std::exception&) {
    return otherwise;
  }
}

}  // namespace kvl::core
