#include "platform/interface/images/SVGDashes.h"

#include "platform/core/ASCII.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace kvl::images {
namespace {

constexpr double kMaximumDashes = 100'000;
// A closed curve is longer than the sum of the numbers that place it.
constexpr double kLengthForNumbers = 8;
constexpr std::string_view kDashes = "stroke-dasharray";
constexpr std::array<std::string_view, 5> kWithoutLengths{"id", "class", "fill", "stroke", "href"};

// The sum of all numbers in the text, signs left out.
double sumOfNumbers(std::string_view text) {
  double sum = 0;
  while (!text.empty()) {
    if (!ascii::isDigit(text.front()) && text.front() != '.') {
      text.remove_prefix(1);
      continue;
    }
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) return HUGE_VAL;
    sum += number;
    text.remove_prefix(std::max<std::size_t>(static_cast<std::size_t>(end - text.data()), 1));
  }
  return sum;
}

}  // namespace

void DashCosts::takeDashes(std::string_view value) {
  const auto text = value.substr(0, value.find_first_of(";}"));
  const bool remarked = text.find("/*") != std::string_view::npos;
  if (!remarked && text.find("none") != std::string_view::npos) return;
  dashed_ = true;
  shortest_ = std::min(shortest_, sumOfNumbers(text));
  unknown_ = unknown_ || remarked || text.find_first_of("%emi") != std::string_view::npos;
}

void DashCosts::take(std::string_view name, std::string_view value) {
  if (name.starts_with("xmlns") || std::ranges::count(kWithoutLengths, name) > 0) return;
  if (name == kDashes) return takeDashes(value);
  for (auto found = value.find(kDashes); found != std::string_view::npos;
       found = value.find(kDashes, found + 1)) {
    takeDashes(value.substr(found + kDashes.size()));
  }
  const bool mirrors = name == "d" && value.find_first_of("tT") != std::string_view::npos;
  unknown_ = unknown_ || mirrors || name == "vector-effect" ||
             value.find("vector-effect") != std::string_view::npos;
  length_ += sumOfNumbers(value);
}

void DashCosts::endOfElement() {
  longest_ = std::max(longest_, length_);
  length_ = 0;
}

bool DashCosts::areModest() const {
  return !dashed_ || (!unknown_ && longest_ * kLengthForNumbers <= kMaximumDashes * shortest_);
}

}  // namespace kvl::images
