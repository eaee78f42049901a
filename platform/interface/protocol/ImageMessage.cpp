// Every field stands at its offset, without padding. A message begins with
//    0 length of the whole (u32), 4 version (u16), 6 kind (u16), 8 number (u64).
// From 16 on stand
//   request  image (u64), 24 format (u32), 28 flags (u32: 1 bytes follow, 2 bytes in a file, 4
//   draw,
//            8 pixels into a file), 32 count of bytes (u64), 40 width (u32), 44 height (u32),
//            48 bytes; a descriptor for flag 2, then one for flag 8
//   answer   image (u64), 24 outcome (u32), 28 flags (u32: 1 pixels follow), 32 natural width and
//            40 height (f64), 48 width (u32), 52 height (u32), 56 zero (u64), 64 pixels
//   ready    process (i32), 20 zero (u32); a descriptor
//   ended    status (i32), 20 error (i32), 24 most memory in KiB (u64)
//   hello    lacks (u32), 20 version of Landlock (u32); its number is 0
//   start    nothing; a descriptor
#include "platform/interface/protocol/ImageMessage.h"

#include <local/platform/Image.h>

#include <cstring>

namespace kvl::interface {
namespace {

static_assert(kLongestSide == kMaximumImageSide && kLongestSide >= kMaximumBitmapSide);

constexpr std::size_t kHeadLength = 16;
constexpr std::size_t kRequestLength = 48;
constexpr std::size_t kAnswerLength = 64;
constexpr std::size_t kReadyLength = 24;
constexpr std::size_t kEndedLength = 32;
constexpr std::size_t kHelloLength = 24;

enum RequestFlag : std::uint32_t {
  kBytesFollow = 1,
  kBytesInFile = 2,
  kDraw = 4,
  kPixelsInFile = 8,
  kAllRequestFlags = 15
};
constexpr std::uint32_t kPixelsFollow = 1;
constexpr std::uint32_t kAllLacks = kNoLandlock | kNoSystemCallFilter | kNoNetworkRules | kNoLimits;

template <class T>
T fieldAt(Span message, std::size_t offset) {
  T value{};
  std::memcpy(&value, message.data() + offset, sizeof value);
  return value;
}

template <class T>
void putField(Bytes& message, std::size_t offset, T value) {
  std::memcpy(message.data() + offset, &value, sizeof value);
}

// A message of `length` bytes, its head written and all else zero, then `tail`.
void begin(Bytes& message, MessageKind kind, std::uint64_t number, std::size_t length,
           Span tail = {}) {
  message.assign(length, 0);
  message.insert(message.end(), tail.begin(), tail.end());
  putField(message, 0, static_cast<std::uint32_t>(message.size()));
  putField(message, 4, kProtocolVersion);
  putField(message, 6, kind);
  putField(message, 8, number);
}

std::uint64_t numberOf(Span message) {
  return fieldAt<std::uint64_t>(message, 8);
}

bool isOf(Span message, MessageKind kind, std::size_t length) {
  return kindOf(message) == kind && message.size() == length;
}

bool isKind(std::uint16_t kind) {
  const bool ofWorkers = kind >= static_cast<std::uint16_t>(MessageKind::kRequest) &&
                         kind <= static_cast<std::uint16_t>(MessageKind::kEnded);
  return ofWorkers || kind == static_cast<std::uint16_t>(MessageKind::kHello) ||
         kind == static_cast<std::uint16_t>(MessageKind::kStart);
}

bool isSide(std::uint32_t side) {
  return side > 0 && side <= kLongestSide;
}

bool isSize(const PixelSize& size) {
  return isSide(size.width) && isSide(size.height);
}

// No number and none below zero fail as well.
bool isNaturalSide(double side) {
  return side >= 0 && side <= kLongestSide;
}

std::uint32_t flagsOf(const ImageRequest& request) {
  std::uint32_t flags = 0;
  if (request.byteCount > 0) flags |= request.inlineBytes.empty() ? kBytesInFile : kBytesFollow;
  if (request.drawing) flags |= kDraw;
  if (request.pixelsInFile) flags |= kPixelsInFile;
  return flags;
}

// How many bytes follow is right for the flags and for the count of bytes.
bool hasItsBytes(std::uint32_t flags, std::uint64_t count, std::size_t following) {
  if (count > kMaximumImageBytes) return false;
  switch (flags & (kBytesFollow | kBytesInFile)) {
    case 0:
      return count == 0 && following == 0;
    case kBytesFollow:
      return count > 0 && count <= kInlineBytes && following == count;
    case kBytesInFile:
      return count > 0 && following == 0;
    default:
      return false;
  }
}

bool isDrawing(std::uint32_t flags, const PixelSize& size) {
  if ((flags & kDraw) == 0) return (flags & kPixelsInFile) == 0 && size == PixelSize{};
  return isSize(size) && ((flags & kPixelsInFile) != 0 || byteCountOf(size) <= kInlineBytes);
}

std::size_t descriptorsOf(std::uint32_t flags) {
  return ((flags & kBytesInFile) != 0 ? 1U : 0U) + ((flags & kPixelsInFile) != 0 ? 1U : 0U);
}

bool hasItsPixels(const ImageAnswer& answer, std::uint32_t flags) {
  if (flags == 0) return answer.inlinePixels.empty();
  return flags == kPixelsFollow && isSize(answer.pixelSize) &&
         answer.inlinePixels.size() == byteCountOf(answer.pixelSize);
}

}  // namespace

std::uint64_t byteCountOf(const PixelSize& size) {
  return std::uint64_t{4} * size.width * size.height;
}

void write(const ImageRequest& request, Bytes& message) {
  begin(message, MessageKind::kRequest, request.number, kRequestLength, request.inlineBytes);
  putField(message, 16, request.image);
  putField(message, 24, request.format);
  putField(message, 28, flagsOf(request));
  putField(message, 32, request.byteCount);
  const auto size = request.drawing.value_or(PixelSize{});
  putField(message, 40, size.width);
  putField(message, 44, size.height);
}

void write(const ImageAnswer& answer, Bytes& message) {
  begin(message, MessageKind::kAnswer, answer.number, kAnswerLength, answer.inlinePixels);
  putField(message, 16, answer.image);
  putField(message, 24, answer.outcome);
  putField(message, 28, answer.inlinePixels.empty() ? std::uint32_t{0} : kPixelsFollow);
  putField(message, 32, answer.naturalSize.width);
  putField(message, 40, answer.naturalSize.height);
  putField(message, 48, answer.pixelSize.width);
  putField(message, 52, answer.pixelSize.height);
}

void write(const WorkerReady& ready, Bytes& message) {
  begin(message, MessageKind::kReady, ready.number, kReadyLength);
  putField(message, 16, ready.process);
}

void write(const WorkerEnded& ended, Bytes& message) {
  begin(message, MessageKind::kEnded, ended.number, kEndedLength);
  putField(message, 16, ended.status);
  putField(message, 20, ended.error);
  putField(message, 24, ended.peakKiB);
}

void write(const Hello& hello, Bytes& message) {
  begin(message, MessageKind::kHello, 0, kHelloLength);
  putField(message, 16, hello.lacks);
  putField(message, 20, hello.landlockVersion);
}

void write(const Start& start, Bytes& message) {
  begin(message, MessageKind::kStart, start.worker, kHeadLength);
}

std::optional<MessageKind> kindOf(Span message) {
  if (message.size() < kHeadLength || message.size() > kLongestMessage ||
      fieldAt<std::uint32_t>(message, 0) != message.size() ||
      fieldAt<std::uint16_t>(message, 4) != kProtocolVersion) {
    return {};
  }
  const auto kind = fieldAt<std::uint16_t>(message, 6);
  if (!isKind(kind)) return {};
  return static_cast<MessageKind>(kind);
}

std::optional<ImageRequest> readRequest(Span message, std::size_t descriptors) {
  if (kindOf(message) != MessageKind::kRequest || message.size() < kRequestLength) return {};
  ImageRequest request;
  request.number = numberOf(message);
  request.image = fieldAt<std::uint64_t>(message, 16);
  const auto format = fieldAt<std::uint32_t>(message, 24);
  const auto flags = fieldAt<std::uint32_t>(message, 28);
  request.byteCount = fieldAt<std::uint64_t>(message, 32);
  const PixelSize size{fieldAt<std::uint32_t>(message, 40), fieldAt<std::uint32_t>(message, 44)};
  request.inlineBytes = message.subspan(kRequestLength);
  if (request.image == 0 || format > static_cast<std::uint32_t>(ImageFormat::kPDF) ||
      flags > kAllRequestFlags || descriptors != descriptorsOf(flags) ||
      !hasItsBytes(flags, request.byteCount, request.inlineBytes.size()) ||
      !isDrawing(flags, size)) {
    return {};
  }
  request.format = static_cast<ImageFormat>(format);
  if ((flags & kDraw) != 0) request.drawing = size;
  request.pixelsInFile = (flags & kPixelsInFile) != 0;
  return request;
}

std::optional<ImageAnswer> readAnswer(Span message) {
  if (kindOf(message) != MessageKind::kAnswer || message.size() < kAnswerLength) return {};
  ImageAnswer answer;
  answer.number = numberOf(message);
  answer.image = fieldAt<std::uint64_t>(message, 16);
  const auto outcome = fieldAt<std::uint32_t>(message, 24);
  answer.naturalSize = {fieldAt<double>(message, 32), fieldAt<double>(message, 40)};
  answer.pixelSize = {fieldAt<std::uint32_t>(message, 48), fieldAt<std::uint32_t>(message, 52)};
  answer.inlinePixels = message.subspan(kAnswerLength);
  if (answer.image == 0 || outcome > static_cast<std::uint32_t>(Outcome::kUnknownImage) ||
      !isNaturalSide(answer.naturalSize.width) || !isNaturalSide(answer.naturalSize.height) ||
      (answer.pixelSize != PixelSize{} && !isSize(answer.pixelSize)) ||
      fieldAt<std::uint64_t>(message, 56) != 0 ||
      !hasItsPixels(answer, fieldAt<std::uint32_t>(message, 28))) {
    return {};
  }
  answer.outcome = static_cast<Outcome>(outcome);
  return answer;
}

std::optional<WorkerReady> readReady(Span message, std::size_t descriptors) {
  if (!isOf(message, MessageKind::kReady, kReadyLength) || descriptors != 1) return {};
  const WorkerReady ready{numberOf(message), fieldAt<std::int32_t>(message, 16)};
  if (ready.process <= 0 || fieldAt<std::uint32_t>(message, 20) != 0) return {};
  return ready;
}

std::optional<WorkerEnded> readEnded(Span message) {
  if (!isOf(message, MessageKind::kEnded, kEndedLength)) return {};
  const WorkerEnded ended{numberOf(message), fieldAt<std::int32_t>(message, 16),
                          fieldAt<std::int32_t>(message, 20), fieldAt<std::uint64_t>(message, 24)};
  if (ended.error < 0) return {};
  return ended;
}

std::optional<Hello> readHello(Span message) {
  if (!isOf(message, MessageKind::kHello, kHelloLength) || numberOf(message) != 0) return {};
  const Hello hello{fieldAt<std::uint32_t>(message, 16), fieldAt<std::uint32_t>(message, 20)};
  if ((hello.lacks & ~kAllLacks) != 0) return {};
  return hello;
}

std::optional<Start> readStart(Span message, std::size_t descriptors) {
  if (!isOf(message, MessageKind::kStart, kHeadLength) || descriptors != 1) return {};
  return Start{numberOf(message)};
}

bool answers(const ImageAnswer& answer, const ImageRequest& request) {
  if (answer.number != request.number || answer.image != request.image) return false;
  if (answer.outcome != Outcome::kDone) {
    if (answer.outcome == Outcome::kUnknownImage && request.byteCount > 0) return false;
    return answer.pixelSize == PixelSize{} && answer.inlinePixels.empty();
  }
  const auto size = request.drawing.value_or(PixelSize{});
  const auto following = request.pixelsInFile ? 0 : byteCountOf(size);
  return answer.naturalSize.width > 0 && answer.naturalSize.height > 0 &&
         answer.pixelSize == size && answer.inlinePixels.size() == following;
}

}  // namespace kvl::interface
