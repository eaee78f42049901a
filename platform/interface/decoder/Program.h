// The image decoder's program: what it does in which order.
#pragma once

#include "platform/interface/decoder/FileAccess.h"
#include "platform/interface/decoder/SystemCalls.h"
#include "platform/interface/pictures/Picture.h"

#include <memory>
#include <span>

namespace kvl::decoder {

// What is handed in, so that tests can have the same program with other pictures.
struct Program {
  std::unique_ptr<pictures::Picture> (*decode)(interface::ImageFormat format,
                                               interface::Span bytes) = pictures::decode;
  bool (*lacksMemory)() noexcept = pictures::lacksMemory;
  void (*loadDecoders)() = pictures::loadDecoders;
  void (*warmText)() = pictures::warmText;
  DeniedCall denied = DeniedCall::kError;
  unsigned landlockVersion = decoder::landlockVersion();
  std::span<const char* const> readable = fontFolders();
};

// Descriptor 3 is the socket to the host; no other above it is used. Returns the status of the
// program when the host has ended or has let go.
[[nodiscard]] int run(const Program& program);

}  // namespace kvl::decoder
