// How languages say that there are updates.
#pragma once

#include <span>
#include <string_view>

namespace kvl::formatting {

// The forms of one language by plural category, "{}" in place of the number. Those that the
// language has no use for are empty.
struct UpdateWords {
  std::string_view language;  // with the script where the language is written in several
  std::string_view zero = {};
  std::string_view one = {};
  std::string_view two = {};
  std::string_view few = {};
  std::string_view many = {};
  std::string_view other = {};
};

// English first.
[[nodiscard]] std::span<const UpdateWords> allUpdateWords() noexcept;

// The form for a category of Unicode's plural rules; the one of `other` for categories that the
// language did not have when its words were written down.
[[nodiscard]] std::string_view formForCategory(const UpdateWords& words,
                                               std::string_view category) noexcept;

}  // namespace kvl::formatting
