// Which form of a text a language has for a number, by the expression in a catalogue's head.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::core {

// The part of C's expressions that catalogues use, such as "n%10==1 && n%100!=11 ? 0 : 1": the
// number n, decimal numbers, parentheses, ! * / % + - and comparisons, && || and ?:. Immutable.
class PluralForms {
 public:
  // From the head's "nplurals=2; plural=(n != 1);". Absent when that is none, or nested deeper than
  // any language needs.
  [[nodiscard]] static std::optional<PluralForms> parse(std::string_view rule);

  // The form's number, below `count`; 0 where the expression has none of them.
  [[nodiscard]] std::size_t formFor(std::uint64_t number) const;
  [[nodiscard]] std::size_t count() const noexcept { return count_; }

 private:
  PluralForms(std::size_t count, std::string_view expression)
      : count_(count), expression_(expression) {}

  std::size_t count_;
  std::string expression_;
};

}  // namespace kvl::core
