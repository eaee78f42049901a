// Makes the body of a form request: all its parts in one buffer, separated by a boundary that
// occurs in none of them.
#include "encoding/MultipartBody.h"

#include "platform/core/FileContent.h"
#include "platform/core/LargeMemory.h"

#include <cerrno>
#include <utility>

namespace kvl::encoding {
namespace {

// The body in its one buffer. Copying whole parts and searching the copy afterwards costs less than
// going over both in blocks that fit the processor's cache.
class Assembly {
 public:
  // Once. An error when an open file cannot be read, or when no memory holds it all.
  [[nodiscard]] std::optional<Error> fill(const std::vector<MultipartPart>& parts,
                                          std::string_view boundary) {
    if (auto error = reserve(parts)) return error;
    boundary_ = boundary;
    return layOut(parts, *this);
  }

  void replaceBoundary(std::string_view boundary) {
    for (const auto place : places_) body_.replace(place, kBoundaryLength, boundary);
  }

  // Whether the boundary occurs in a part.
  [[nodiscard]] bool boundaryOccurs() const {
    const auto body = std::string_view(body_);
    const auto boundary = body.substr(places_.front(), kBoundaryLength);
    for (std::size_t i = 0; i + 1 < places_.size(); ++i) {
      const std::size_t begin = places_[i] + kBoundaryLength + 1;
      const std::size_t end = places_[i + 1] - kBeforeBoundary;
      if (occursIn(body.substr(begin, end - begin), boundary)) return true;
    }
    return false;
  }

  [[nodiscard]] bool isFilled() const noexcept { return !places_.empty(); }
  [[nodiscard]] std::string take() && { return std::move(body_); }

  // What `layOut` calls.
  void boundary() {
    places_.push_back(body_.size());
    body_ += boundary_;
  }
  void text(std::string_view text) { body_ += text; }
  [[nodiscard]] std::optional<Error> file(const core::FileContent& file) {
    return file.appendTo(body_);
  }

 private:
  static constexpr std::size_t kBeforeBoundary = 3;  // a line feed and two hyphens

  [[nodiscard]] std::optional<Error> reserve(const std::vector<MultipartPart>& parts) {
    const auto size = multipartSize(parts, body_.max_size());
    if (!size) return Error(NSPOSIXErrorDomain, ENOMEM);
    if (auto error = core::reserveMore(body_, *size)) return error;
    core::preferLargePages(body_.data(), body_.capacity());
    places_.reserve(parts.size() + 1);
    return std::nullopt;
  }

  std::string body_;
  std::string_view boundary_;        // while it is filled
  std::vector<std::size_t> places_;  // where the boundary stands
};

}  // namespace

std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                        const BoundarySource& source) {
  if (inputs.empty()) return std::nullopt;
  std::optional<Error> error;
  const auto parts = multipartParts(inputs, &error);
  if (!parts) return error;
  Assembly assembly;
  const auto occurs = [&](const std::string& boundary, std::optional<Error>& failure) {
    if (assembly.isFilled())
      assembly.replaceBoundary(boundary);
    else
      failure = assembly.fill(*parts, boundary);
    return !failure && assembly.boundaryOccurs();
  };
  const auto boundary = chooseBoundary(source, occurs, &error);
  if (!boundary) return error;
  auto bytes = std::move(assembly).take();
  setMultipartHead(request, *boundary, bytes.size());
  request.setBody(Data::adoptingText(std::move(bytes)));
  return std::nullopt;
}

}  // namespace kvl::encoding
