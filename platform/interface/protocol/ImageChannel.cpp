#include "platform/interface/protocol/ImageChannel.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kvl::interface {
namespace {

constexpr std::size_t kDescriptorBytes = sizeof(int) * ImageChannel::kMostDescriptors;

// Room for the descriptors of one message, placed as their head wants it.
struct alignas(cmsghdr) ControlBuffer {
  std::array<char, CMSG_SPACE(kDescriptorBytes)> bytes{};
};

void attach(std::span<const int> descriptors, ControlBuffer& control, msghdr& head) {
  if (descriptors.empty()) return;
  head.msg_control = control.bytes.data();
  head.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
  cmsghdr* const part = CMSG_FIRSTHDR(&head);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(descriptors.size_bytes());
  std::memcpy(CMSG_DATA(part), descriptors.data(), descriptors.size_bytes());
}

// All that came, however many are wanted: who does not take them over leaks them.
void takeOver(msghdr& head, ImageChannel::Packet& packet) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&head); part != nullptr; part = CMSG_NXTHDR(&head, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count && packet.count < packet.descriptors.size(); ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
      packet.descriptors[packet.count++] = Descriptor(number);
    }
  }
}

bool wasInterrupted(ssize_t result) {
  return result < 0 && errno == EINTR;
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) ::close(number_);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  Descriptor taken(std::move(other));
  std::swap(number_, taken.number_);
  return *this;
}

ImageChannel::ImageChannel(Descriptor socket)
    : socket_(std::move(socket)), buffer_(kLongestMessage) {}

std::optional<std::pair<Descriptor, Descriptor>> ImageChannel::makePair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
    return {};
  }
  return std::pair(Descriptor(ends[0]), Descriptor(ends[1]));
}

bool ImageChannel::send(Span message, std::span<const int> descriptors) {
  if (descriptors.size() > kMostDescriptors) return false;
  iovec part{const_cast<std::uint8_t*>(message.data()), message.size()};
  msghdr head{};
  head.msg_iov = &part;
  head.msg_iovlen = 1;
  ControlBuffer control;
  attach(descriptors, control, head);
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(socket_.get(), &head, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (wasInterrupted(sent));
  return sent == static_cast<ssize_t>(message.size());
}

ImageChannel::Receipt ImageChannel::receive(Packet& packet, std::size_t mostDescriptors) {
  packet = {};
  iovec part{buffer_.data(), buffer_.size()};
  ControlBuffer control;
  msghdr head{};
  head.msg_iov = &part;
  head.msg_iovlen = 1;
  head.msg_control = control.bytes.data();
  head.msg_controllen = control.bytes.size();
  ssize_t length = 0;
  do {
    length = ::recvmsg(socket_.get(), &head, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (wasInterrupted(length));
  if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Receipt::kNothingYet;
  if (length < 0) return Receipt::kOver;
  takeOver(head, packet);
  const bool wasCut = (head.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0;
  if (length == 0 || wasCut || packet.count > mostDescriptors) {
    packet = {};
    return Receipt::kOver;
  }
  packet.message = Span(buffer_).first(static_cast<std::size_t>(length));
  return Receipt::kPacket;
}

}  // namespace kvl::interface
