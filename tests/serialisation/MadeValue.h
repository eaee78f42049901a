// Values made from bytes, for property tests and fuzzers.
#pragma once

#include <local/platform/Value.h>

#include <cstdint>
#include <span>
#include <string>

namespace kvltest {

// The same bytes always make the same value. Missing bytes count as zero.
class ValueMaker {
 public:
  enum class Range {
    // Anything at all: nulls, text that is not UTF-8, numbers and dates of any bits.
    everything,
    // What every reader of property lists holds exactly: no null, no NUL in texts, finite numbers
    // but -0, dates of 1933 to 2068 in whole seconds, and never the same data twice.
    portable,
  };

  ValueMaker(std::span<const std::uint8_t> bytes, Range range) : rest_(bytes), range_(range) {}

  [[nodiscard]] kvl::Value value(int depth = 0);

 private:
  [[nodiscard]] std::uint8_t byte();
  [[nodiscard]] std::uint64_t number(int bytes);
  [[nodiscard]] std::int64_t integer();
  [[nodiscard]] double real();
  [[nodiscard]] kvl::Date date();
  [[nodiscard]] std::string text();
  void appendCharacter(std::string& text);
  [[nodiscard]] kvl::Data data();
  [[nodiscard]] kvl::Array array(int depth);
  [[nodiscard]] kvl::Dictionary dictionary(int depth);
  [[nodiscard]] bool portable() const { return range_ == Range::portable; }

  std::span<const std::uint8_t> rest_;
  const Range range_;
  int datas_ = 0;
};

}  // namespace kvltest
