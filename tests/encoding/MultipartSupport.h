// Inputs, boundaries and requests for tests of form bodies.
#pragma once

#include "encoding/MultipartBody.h"

#include <local/KVLInputFile.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {

inline constexpr std::string_view kBoundary = "abcdefABCDEF";
inline constexpr std::string_view kOtherBoundary = "0123456789xy";

inline kvl::encoding::BoundarySource always(std::string_view boundary) {
  return [boundary] { return std::string(boundary); };
}

// Gives boundaries in order and counts them.
class Boundaries {
 public:
  explicit Boundaries(std::vector<std::string> boundaries) : boundaries_(std::move(boundaries)) {}
  [[nodiscard]] kvl::encoding::BoundarySource source() {
    return [this] { return boundaries_.at(drawn_++); };
  }
  [[nodiscard]] std::size_t drawn() const { return drawn_; }

 private:
  const std::vector<std::string> boundaries_;
  std::size_t drawn_ = 0;
};

inline kvl::Dictionary input(std::string_view name, const kvl::Value& value) {
  return {{"name", name}, {"value", value}};
}

inline kvl::Value file(std::optional<std::string> filename, std::optional<std::string> contentType,
                       std::string_view content) {
  return std::shared_ptr<kvl::Object>(KVLInputFile::newWithFilename(
      std::move(filename), std::move(contentType), kvl::Data::fromText(content)));
}

// A request that holds something of everything that the writer changes.
inline kvl::URLRequest filledRequest() {
  kvl::URLRequest request("a");
  request.setMethod("PATCH");
  request.headers().set("Content-Type", "text/x-before");
  request.headers().set("Content-Length", "6");
  request.setBody(kvl::Data::fromText("before"));
  return request;
}

inline void expectUnchanged(const kvl::URLRequest& request) {
  EXPECT_EQ(request.method(), "PATCH");
  EXPECT_EQ(request.headers(), filledRequest().headers());
  EXPECT_EQ(request.body()->text(), "before");
}

inline kvl::Error extensionsError(std::int64_t code, const kvl::Dictionary& userInfo) {
  return {"korvale.vandrel.local.extensions", code, userInfo};
}

}  // namespace kvltest
