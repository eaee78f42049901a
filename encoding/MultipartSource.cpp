#include "encoding/MultipartSource.h"

#include "platform/core/FileContent.h"
#include "platform/core/ProcessExit.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <utility>

namespace kvl::encoding {
namespace {

constexpr std::size_t kSearchedBlock = std::size_t{256} << 10;
// The largest body that a request can say the length of.
constexpr std::size_t kLargestBody = std::numeric_limits<std::int64_t>::max();

// Looks for a text in bytes that come one piece after the other.
class PieceSearch {
 public:
  explicit PieceSearch(std::string_view text) : text_(text) {}

  // Whether the text occurs in what has come, these bytes included. Not asked again once it does.
  [[nodiscard]] bool occursWith(std::string_view bytes) {
    const std::size_t overlap = text_.size() - 1;
    seam_ += bytes.substr(0, overlap);
    if (occursIn(seam_, text_) || occursIn(bytes, text_)) return true;
    if (bytes.size() > overlap) seam_ = bytes.substr(bytes.size() - overlap);
    seam_.erase(0, seam_.size() - std::min(seam_.size(), overlap));
    return false;
  }

 private:
  const std::string_view text_;
  std::string seam_;  // the end of what has come, too short for the text
};

// The file's next bytes; nothing at its end or with an error. Between two calls the process may
// exit.
std::string_view readBlock(const core::FileContent& file, std::size_t done, std::span<char> block,
                           std::optional<Error>& error) {
  const core::ThreadWork work;
  return {block.data(), file.readAt(done, block, &error)};
}

}  // namespace

std::size_t MultipartSource::Piece::size() const noexcept {
  return file != nullptr ? file->size() : text.size();
}

MultipartSource::MultipartSource(const Array& inputs, std::vector<MultipartPart> parts,
                                 std::size_t size)
    : inputs_(inputs), parts_(std::move(parts)), size_(size) {}

MultipartSource::~MultipartSource() = default;

std::shared_ptr<MultipartSource> MultipartSource::make(const Array& inputs,
                                                       std::optional<Error>* error) {
  auto parts = multipartParts(inputs, error);
  if (!parts || std::ranges::none_of(*parts, [](const auto& part) { return !!part.openFile; }))
    return nullptr;
  const auto size = multipartSize(*parts, kLargestBody);
  if (!size) {
    storeError(error, Error(NSPOSIXErrorDomain, EFBIG));
    return nullptr;
  }
  return std::make_shared<MultipartSource>(inputs, *std::move(parts), *size);
}

std::optional<Error> MultipartSource::findBoundary(const BoundarySource& source,
                                                   const std::function<bool()>& isUnwanted) {
  const auto occurs = [&](const std::string& boundary, std::optional<Error>& failure) {
    return occursInAPart(boundary, isUnwanted, failure);
  };
  std::optional<Error> error;
  auto boundary = chooseBoundary(source, occurs, &error);
  if (!boundary) return error;
  boundary_ = *std::move(boundary);
  return layOut(parts_, *this);
}

bool MultipartSource::occursInAPart(std::string_view boundary,
                                    const std::function<bool()>& isUnwanted,
                                    std::optional<Error>& error) const {
  std::vector<char> block(kSearchedBlock);
  for (const auto& part : parts_) {
    PieceSearch search(boundary);
    if (search.occursWith(part.head) || search.occursWith(part.content)) return true;
    const std::size_t size = part.openFile ? part.openFile->size() : 0;
    for (std::size_t done = 0; done < size;) {
      if (isUnwanted()) error = Error(NSURLErrorDomain, NSURLErrorCancelled);
      if (error) return false;
      const auto bytes = readBlock(*part.openFile, done, block, error);
      if (search.occursWith(bytes)) return true;
      done += bytes.size();
    }
  }
  return false;
}

void MultipartSource::setBody(URLRequest& request, const std::shared_ptr<MultipartSource>& source) {
  setMultipartHead(request, source->boundary_, source->size_);
  request.setBodySource(source);
}

void MultipartSource::boundary() {
  text(boundary_);
}

void MultipartSource::text(std::string_view text) {
  pieces_.push_back({text, nullptr});
}

std::optional<Error> MultipartSource::file(const core::FileContent& file) {
  pieces_.push_back({{}, &file});
  return std::nullopt;
}

std::size_t MultipartSource::read(std::span<std::uint8_t> room, std::optional<Error>* error) {
  std::size_t filled = 0;
  while (filled < room.size() && piece_ < pieces_.size()) {
    const auto& [text, file] = pieces_[piece_];
    const std::span<char> rest{reinterpret_cast<char*>(room.data()) + filled, room.size() - filled};
    std::optional<Error> failure;
    const std::size_t count = file != nullptr ? file->readAt(done_, rest, &failure)
                                              : text.copy(rest.data(), rest.size(), done_);
    if (failure) {
      storeError(error, std::move(failure));
      return 0;
    }
    filled += count;
    done_ += count;
    if (done_ == pieces_[piece_].size()) {
      ++piece_;
      done_ = 0;
    }
  }
  return filled;
}

bool MultipartSource::rewind() {
  piece_ = done_ = 0;
  return true;
}

}  // namespace kvl::encoding
