// The parts of form requests' bodies, and how they stand there: for a body in one buffer as for one
// that is read while it is sent.
#pragma once

#include "encoding/Boundary.h"

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::core {
class FileContent;
}

namespace kvl::encoding {

// Boundaries drawn for one body. The last one is drawn, but never taken.
inline constexpr int kBoundaryDraws = 10;

// Gives a new boundary (`Boundary.h`) per call.
using BoundarySource = std::function<std::string()>;

// The bytes of one part are those of `head`, those of `content` and those of `openFile`.
struct MultipartPart {
  std::string head;          // the header lines and the empty line
  std::string_view content;  // what the input holds, or `file`
  Data file;                 // kept here because the input's may be replaced meanwhile
  std::shared_ptr<const core::FileContent> openFile;

  [[nodiscard]] std::size_t size() const noexcept;
};

// One part per input, in order, or the error of the first input that cannot be sent. The parts
// refer to the inputs.
[[nodiscard]] std::optional<std::vector<MultipartPart>> multipartParts(const Array& inputs,
                                                                       std::optional<Error>* error);

// The size of a body of these parts; absent when it exceeds `most`.
[[nodiscard]] std::optional<std::size_t> multipartSize(const std::vector<MultipartPart>& parts,
                                                       std::size_t most);

// Hands the pieces of a body to `out` in their order, each by `out.boundary()`, `out.text(view)` or
// `out.file(content)`, until the last of these has an error.
template <class Out>
std::optional<Error> layOut(const std::vector<MultipartPart>& parts, Out& out) {
  constexpr std::string_view kHyphens = "--";
  out.text(kHyphens);
  out.boundary();
  for (const auto& part : parts) {
    out.text("\n");
    out.text(part.head);
    out.text(part.content);
    if (part.openFile)
      if (auto error = out.file(*part.openFile)) return error;
    out.text("\n");
    out.text(kHyphens);
    out.boundary();
  }
  out.text(kHyphens);
  out.text("\n");
  return std::nullopt;
}

// Whether a boundary occurs in some part, or an error.
using PartSearch = std::function<bool(const std::string& boundary, std::optional<Error>& error)>;

// The first of the drawn boundaries that occurs in no part. None with an error when every one that
// may be taken does, or with the search's.
[[nodiscard]] std::optional<std::string> chooseBoundary(const BoundarySource& source,
                                                        const PartSearch& occurs,
                                                        std::optional<Error>* error);

// Sets the fields and the method of a request with such a body.
void setMultipartHead(URLRequest& request, const std::string& boundary, std::size_t size);

}  // namespace kvl::encoding
