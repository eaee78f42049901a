// The beginning of a line whose end has not arrived yet.
#pragma once

#include <local/platform/Data.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::eventstream {

// Grows in place, so that a long line costs what its bytes cost however many chunks bring it. What
// was given out as `Data` stays as it is: bytes are only ever added behind it. One thread at a
// time.
class PartialLine {
 public:
  // Goes on from `carried`: in place when this object gave it out last, otherwise from a copy.
  void resume(const std::optional<Data>& carried);
  void append(std::string_view bytes);
  [[nodiscard]] std::string_view text() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return text().empty(); }
  // Gives the bytes out. They keep the buffer alive; this object does not.
  [[nodiscard]] Data share();

 private:
  void grow(std::size_t size);

  std::shared_ptr<std::string> buffer_;
  std::weak_ptr<std::string> shared_;
};

}  // namespace kvl::eventstream
