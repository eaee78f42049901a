// Bodies of form requests that are read while they are sent.
#pragma once

#include "encoding/MultipartParts.h"

#include <local/platform/BodySource.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::encoding {

// The same bytes and fields as those of `writeMultipartBody`, in memory that does not grow with the
// open files. One thread at a time.
class MultipartSource final : public BodySource {
 public:
  // Null when there is no open file among the inputs, or with the error of the first one that
  // cannot be sent.
  [[nodiscard]] static std::shared_ptr<MultipartSource> make(const Array& inputs,
                                                             std::optional<Error>* error);

  // Goes through all parts, so it may take long. An error as `writeMultipartBody` has it;
  // NSURLErrorCancelled once `isUnwanted`, which is asked between two blocks.
  // @pre nothing has been read
  [[nodiscard]] std::optional<Error> findBoundary(const BoundarySource& source,
                                                  const std::function<bool()>& isUnwanted);

  // Makes `source` the body of the request.
  // @pre it has found its boundary
  static void setBody(URLRequest& request, const std::shared_ptr<MultipartSource>& source);

  [[nodiscard]] std::optional<std::uint64_t> length() const override { return size_; }
  [[nodiscard]] std::size_t read(std::span<std::uint8_t> room,
                                 std::optional<Error>* error) override;
  [[nodiscard]] bool rewind() override;

  // For `make`.
  MultipartSource(const Array& inputs, std::vector<MultipartPart> parts, std::size_t size);
  ~MultipartSource() override;

  // What `layOut` calls.
  void boundary();
  void text(std::string_view text);
  [[nodiscard]] std::optional<Error> file(const core::FileContent& file);

 private:
  // Either of the two.
  struct Piece {
    std::string_view text;
    const core::FileContent* file;

    [[nodiscard]] std::size_t size() const noexcept;
  };

  [[nodiscard]] bool occursInAPart(std::string_view boundary,
                                   const std::function<bool()>& isUnwanted,
                                   std::optional<Error>& error) const;

  const Array inputs_;  // the parts refer to them
  const std::vector<MultipartPart> parts_;
  const std::size_t size_;
  std::string boundary_;
  std::vector<Piece> pieces_;
  std::size_t piece_ = 0;  // the one that is read from
  std::size_t done_ = 0;   // of its bytes
};

}  // namespace kvl::encoding
