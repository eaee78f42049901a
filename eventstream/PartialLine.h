// The beginning of a line whose end has not arrived yet.
#pragma once

#include <local/platform/Data.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace kvl::eventstream {

// Grows in place, so that a long line costs what its bytes cost however many chunks bring it, and
// keeps its memory for the next line while nobody else holds it. What was given out as `Data` stays
// as it is: bytes are only ever added behind it. Usable on one thread at a time.
class PartialLine {
 public:
  [[nodiscard]] std::string_view text() const noexcept { return {bytes_.get(), size_}; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  // Whether all of it is known to be ASCII.
  [[nodiscard]] bool isASCII() const noexcept { return isASCII_; }

  void append(std::string_view bytes, bool isASCII);
  // Begins another line.
  void clear() noexcept;
  // Goes on from somebody else's bytes instead.
  void assign(std::string_view bytes);
  // Gives out what there is.
  [[nodiscard]] Data share();

  // @name The whole line
  // @{
  // The line with its end, which is not added to it. Whoever gets it looks at it until `reclaim`,
  // whatever is called meanwhile, or keeps it.
  [[nodiscard]] Data completed(std::string_view end);
  // Nobody has kept what `completed` gave last.
  void reclaim(const Data& line) noexcept;
  // @}

 private:
  // What stays for the next line. Longer ones are rare.
  static constexpr std::size_t kKeptSize = std::size_t{64} << 10;

  void makeRoom(std::size_t count) {
    if (count > capacity_ - size_) grow(count);
  }
  void grow(std::size_t count);

  std::shared_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool isASCII_ = true;
  // Whether somebody else may hold the bytes: what `share` gave, and what `completed` gave.
  bool isShared_ = false;
  bool isLent_ = false;
};

}  // namespace kvl::eventstream
