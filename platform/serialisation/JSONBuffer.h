// Text that grows while it is written.
#pragma once

#include <local/platform/Data.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace kvl::serialisation {

class JSONBuffer {
 public:
  [[nodiscard]] std::string_view text() const noexcept { return {start_.get(), size_}; }

  void append(char character) { *reserve(1) = character, ++size_; }
  void append(std::string_view text);
  void appendInteger(std::int64_t number);
  // The shortest text that gives the number back, as a real. @pre finite
  void appendReal(double number);
  // In quotes, with the escapes that JSON needs and no others.
  void appendString(std::string_view text);

  // The text itself. Nothing else may be called then.
  [[nodiscard]] Data take() &&;

 private:
  struct Free {
    void operator()(char* memory) const noexcept { std::free(memory); }
  };

  // Room for so many more characters, which `size_` counts once they are there.
  char* reserve(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return start_.get() + size_;
  }
  void grow(std::size_t count);
  void appendEscaped(std::string_view text);
  void appendEscape(char character);

  std::unique_ptr<char[], Free> start_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace kvl::serialisation
