#include "tests/support/HTTP2Peer.h"

namespace kvl::testing {
namespace {

constexpr std::string_view kPreface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
constexpr std::size_t kHeadSize = 9;
constexpr std::size_t kLengthSize = 3;
constexpr std::size_t kWordSize = 4;
// The entry ":status: 200" of the static table (RFC 7541, appendix A).
constexpr char kStatusOK = '\x88';

std::string bigEndian(std::uint32_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t left = size; left > 0; --left)
    bytes += static_cast<char>((number >> (8 * (left - 1))) & 0xffU);
  return bytes;
}

std::uint32_t numberIn(std::string_view bytes) {
  std::uint32_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace

std::string encoded(const HTTP2Frame& frame) {
  std::string bytes = bigEndian(static_cast<std::uint32_t>(frame.payload.size()), kLengthSize);
  bytes += static_cast<char>(frame.type);
  bytes += static_cast<char>(frame.flags);
  return bytes + bigEndian(frame.stream, kWordSize) + frame.payload;
}

HTTP2Peer::HTTP2Peer(TestPeer& peer) : peer_(peer) {
  static_cast<void>(peer_.read(kPreface.size()));
  send({HTTP2Frame::settings, 0, 0, {}});
}

std::optional<HTTP2Frame> HTTP2Peer::next() {
  const std::string head = peer_.read(kHeadSize);
  if (head.size() < kHeadSize) return std::nullopt;
  const std::string_view view = head;
  HTTP2Frame frame;
  frame.type = static_cast<std::uint8_t>(head[kLengthSize]);
  frame.flags = static_cast<std::uint8_t>(head[kLengthSize + 1]);
  frame.stream = numberIn(view.substr(kLengthSize + 2));
  frame.payload = peer_.read(numberIn(view.substr(0, kLengthSize)));
  if (frame.type == HTTP2Frame::settings && (frame.flags & HTTP2Frame::kAcknowledged) == 0)
    send({HTTP2Frame::settings, HTTP2Frame::kAcknowledged, 0, {}});
  return frame;
}

std::optional<HTTP2Frame> HTTP2Peer::nextOf(HTTP2Frame::Type type) {
  auto frame = next();
  while (frame && frame->type != type) frame = next();
  return frame;
}

std::optional<std::uint32_t> HTTP2Peer::nextRequest() {
  for (auto frame = next(); frame; frame = next()) {
    const bool isPart = frame->type == HTTP2Frame::headers || frame->type == HTTP2Frame::data;
    if (isPart && (frame->flags & HTTP2Frame::kEndStream) != 0) return frame->stream;
  }
  return std::nullopt;
}

bool HTTP2Peer::send(const HTTP2Frame& frame) {
  return peer_.write(encoded(frame));
}

bool HTTP2Peer::sendHead(std::uint32_t stream, bool endsStream) {
  const auto end = endsStream ? HTTP2Frame::kEndStream : std::uint8_t{0};
  return send({HTTP2Frame::headers, static_cast<std::uint8_t>(HTTP2Frame::kEndHeaders | end),
               stream, std::string(1, kStatusOK)});
}

bool HTTP2Peer::sendData(std::uint32_t stream, std::string_view bytes, bool endsStream) {
  return send({HTTP2Frame::data, endsStream ? HTTP2Frame::kEndStream : std::uint8_t{0}, stream,
               std::string(bytes)});
}

bool HTTP2Peer::sendReset(std::uint32_t stream, std::uint32_t error) {
  return send({HTTP2Frame::reset, 0, stream, bigEndian(error, kWordSize)});
}

bool HTTP2Peer::sendGoAway(std::uint32_t lastStream, std::uint32_t error) {
  return send(
      {HTTP2Frame::goAway, 0, 0, bigEndian(lastStream, kWordSize) + bigEndian(error, kWordSize)});
}

}  // namespace kvl::testing
