// What the host and the image decoder's processes tell each other: one message, one packet. Native
// byte order, as both come from one build for one machine.
#pragma once

#include "platform/interface/protocol/ImageFormat.h"

#include <local/platform/Data.h>
#include <local/platform/Geometry.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kvl::interface {

inline constexpr std::uint16_t kProtocolVersion = 1;
// As much travels inside a message: a memory file costs as much as copying more than that.
inline constexpr std::size_t kInlineBytes = std::size_t{16} << 10;
inline constexpr std::size_t kLongestMessage = 64 + kInlineBytes;
// Of an image or of what is drawn, in points or pixels.
inline constexpr std::uint32_t kLongestSide = 65'535;

enum class MessageKind : std::uint16_t {
  kRequest = 1,  // host to worker
  kAnswer,       // worker to host
  kReady,        // worker to host, before it reads its first request
  kEnded,        // parent to host, on the worker's socket
  kHello = 16,   // parent to host
  kStart         // host to parent
};

enum class Outcome : std::uint32_t {
  kDone,
  kNoImage,      // nothing in the bytes that the format's decoder takes
  kTooLarge,     // sides beyond `kMaximumImageSide`
  kMemory,       // more than the process may take
  kNotDrawn,     // it opened, but the drawing failed
  kUnknownImage  // not opened, or forgotten: send the bytes again
};

// What the system lacks for confining the decoders, as bits of `Hello::lacks`.
enum Lack : std::uint32_t {
  kNoLandlock = 1,
  kNoSystemCallFilter = 2,
  kNoNetworkRules = 4,
  kNoLimits = 8
};

struct PixelSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

// What that many pixels take.
[[nodiscard]] std::uint64_t byteCountOf(const PixelSize& size);

struct ImageRequest {
  std::uint64_t number = 0;
  std::uint64_t image = 0;  // never 0
  ImageFormat format = ImageFormat::kUnknown;
  std::uint64_t byteCount = 0;  // 0: the worker has opened the image
  Span inlineBytes{};           // all of them, or none: then they are in the first descriptor
  std::optional<PixelSize> drawing{};  // without: only the natural size is wanted
  bool pixelsInFile = false;           // the last descriptor
};

// A worker keeps as many; the host sends those again that it has forgotten.
inline constexpr std::size_t kMostOpenImages = 32;

struct ImageAnswer {
  std::uint64_t number = 0;
  std::uint64_t image = 0;
  Outcome outcome = Outcome::kNoImage;
  Size naturalSize{};
  PixelSize pixelSize{};
  Span inlinePixels{};
};

// Comes with a pidfd of the worker, by which the host ends it and sees its death.
struct WorkerReady {
  std::uint64_t number = 0;
  std::int32_t process = 0;
};

// With this status a worker says that it ended because it may not take more memory.
inline constexpr int kOutOfMemory = 3;

struct WorkerEnded {
  std::uint64_t number = 0;
  std::int32_t status = 0;  // as wait(2) tells it
  std::int32_t error = 0;   // why there is no worker; 0 when there was one
  std::uint64_t peakKiB = 0;
};

struct Hello {
  std::uint32_t lacks = 0;
  std::uint32_t landlockVersion = 0;
};

// Comes with the worker's end of a new pair of sockets.
struct Start {
  std::uint64_t worker = 0;
};

// Replace what `message` holds.
void write(const ImageRequest& request, Bytes& message);
void write(const ImageAnswer& answer, Bytes& message);
void write(const WorkerReady& ready, Bytes& message);
void write(const WorkerEnded& ended, Bytes& message);
void write(const Hello& hello, Bytes& message);
void write(const Start& start, Bytes& message);

// The kind of a message whose head is as it should be: length, version, a kind that there is.
[[nodiscard]] std::optional<MessageKind> kindOf(Span message);

// None when anything at all is not as the table in ImageMessage.cpp says: kind, lengths, flags,
// reserved fields, descriptors. Spans in what was read are views of the message.
[[nodiscard]] std::optional<ImageRequest> readRequest(Span message, std::size_t descriptors);
[[nodiscard]] std::optional<ImageAnswer> readAnswer(Span message);
[[nodiscard]] std::optional<WorkerReady> readReady(Span message, std::size_t descriptors);
[[nodiscard]] std::optional<WorkerEnded> readEnded(Span message);
[[nodiscard]] std::optional<Hello> readHello(Span message);
[[nodiscard]] std::optional<Start> readStart(Span message, std::size_t descriptors);

// Whether it answers that request: numbers, sizes within the limits, pixels as many as were asked
// for.
[[nodiscard]] bool answers(const ImageAnswer& answer, const ImageRequest& request);

}  // namespace kvl::interface
