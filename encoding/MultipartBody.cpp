#include "encoding/MultipartBody.h"

#include "encoding/BoundarySearch.h"
#include "encoding/MultipartPart.h"
#include "platform/core/LargeMemory.h"

#include <local/KVLExtensions.h>

#include <cassert>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::encoding {
namespace {

constexpr std::string_view kHyphens = "--";

// The body in its one buffer. Copying whole parts and searching the copy afterwards costs less than
// going over both in blocks that fit the processor's cache.
class Assembly {
 public:
  Assembly(const std::vector<MultipartPart>& parts, std::string_view boundary) {
    reserve(parts);
    appendBoundary(boundary);
    for (const auto& part : parts) {
      body_ += '\n';
      body_ += part.head;
      body_ += part.content;
      body_ += '\n';
      appendBoundary(boundary);
    }
    body_ += kHyphens;
    body_ += '\n';
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
      const std::size_t end = places_[i + 1] - kHyphens.size() - 1;
      if (occursIn(body.substr(begin, end - begin), boundary)) return true;
    }
    return false;
  }

  [[nodiscard]] std::string take() && { return std::move(body_); }

 private:
  void reserve(const std::vector<MultipartPart>& parts) {
    constexpr std::size_t kBoundaryLine = kHyphens.size() + kBoundaryLength + 1;
    std::size_t size = kBoundaryLine + kHyphens.size();
    for (const auto& part : parts) size += part.size() + 1 + kBoundaryLine;
    body_.reserve(size);
    core::preferLargePages(body_.data(), body_.capacity());
    places_.reserve(parts.size() + 1);
  }

  void appendBoundary(std::string_view boundary) {
    body_ += kHyphens;
    places_.push_back(body_.size());
    body_ += boundary;
  }

  std::string body_;
  std::vector<std::size_t> places_;  // where the boundary stands
};

struct MultipartBody {
  std::string boundary;
  std::string bytes;
};

std::string drawnFrom(const BoundarySource& source) {
  auto boundary = source();
  assert(boundary.size() == kBoundaryLength);
  return boundary;
}

// None when every boundary that may be taken occurs in some part.
std::optional<MultipartBody> assemble(const std::vector<MultipartPart>& parts,
                                      const BoundarySource& source) {
  auto boundary = drawnFrom(source);
  Assembly assembly(parts, boundary);
  int drawn = 1;
  while (assembly.boundaryOccurs() && drawn < kBoundaryDraws) {
    boundary = drawnFrom(source);
    assembly.replaceBoundary(boundary);
    ++drawn;
  }
  if (drawn == kBoundaryDraws) return std::nullopt;
  return MultipartBody{std::move(boundary), std::move(assembly).take()};
}

Error noBoundary() {
  return {KVLExtensions::KVLExtensionsErrorDomain,
          400,
          {{"watchdog", "unable to derive unique boundary"}}};
}

void setBody(URLRequest& request, MultipartBody body) {
  auto& headers = request.headers();
  headers.set("Content-Type", "multipart/form-data; boundary=" + body.boundary);
  headers.set("Content-Length", std::to_string(body.bytes.size()));
  request.setMethod("POST");
  request.setBody(Data::adoptingText(std::move(body.bytes)));
}

}  // namespace

std::string drawBoundary(const core::ByteSource& random) {
  constexpr std::string_view kCharacters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string boundary;
  while (boundary.size() < kBoundaryLength)
    boundary += kCharacters[core::uniformDraw(kCharacters.size(), random)];
  return boundary;
}

std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                        const BoundarySource& source) {
  if (inputs.empty()) return std::nullopt;
  std::optional<Error> error;
  const auto parts = multipartParts(inputs, &error);
  if (!parts) return error;
  auto body = assemble(*parts, source);
  if (!body) return noBoundary();
  setBody(request, *std::move(body));
  return std::nullopt;
}

}  // namespace kvl::encoding
