// The parts of a form request's body.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::encoding {

// The bytes of one part are those of `head` and then those of `content`.
struct MultipartPart {
  std::string head;          // the header lines and the empty line
  std::string_view content;  // what the input holds, or `file`
  Data file;                 // kept here because the input's may be replaced meanwhile

  [[nodiscard]] std::size_t size() const noexcept { return head.size() + content.size(); }
};

// One part per input, in order, or the error of the first input that cannot be sent. The parts
// refer to the inputs.
[[nodiscard]] std::optional<std::vector<MultipartPart>> multipartParts(const Array& inputs,
                                                                       std::optional<Error>* error);

}  // namespace kvl::encoding
