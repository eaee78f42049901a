// One end of the socket between the host and a process of the image decoder.
#pragma once

#include "platform/interface/protocol/ImageMessage.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <utility>

namespace kvl::interface {

// Owns a descriptor and closes it.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int number) noexcept : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  [[nodiscard]] int get() const noexcept { return number_; }
  [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }
  [[nodiscard]] explicit operator bool() const noexcept { return number_ >= 0; }

 private:
  int number_ = -1;
};

// One thread at a time. Never raises SIGPIPE; all descriptors are close-on-exec.
class ImageChannel {
 public:
  static constexpr std::size_t kMostDescriptors = 2;

  struct Packet {
    Span message;  // stays until the next call of `receive`
    std::array<Descriptor, kMostDescriptors> descriptors;
    std::size_t count = 0;
  };
  enum class Receipt {
    kPacket,
    kNothingYet,
    kOver  // the other end has gone, or sent a packet that was cut or brings too many descriptors
  };

  explicit ImageChannel(Descriptor socket);

  // Two sockets of kind SOCK_SEQPACKET that do not block. None without descriptors.
  [[nodiscard]] static std::optional<std::pair<Descriptor, Descriptor>> makePair();

  [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }  // for poll

  // False when the other end has gone or its buffer is full.
  [[nodiscard]] bool send(Span message, std::span<const int> descriptors = {});
  // Never waits. `mostDescriptors` 0 refuses any.
  [[nodiscard]] Receipt receive(Packet& packet, std::size_t mostDescriptors);

 private:
  Descriptor socket_;
  Bytes buffer_;
};

}  // namespace kvl::interface
