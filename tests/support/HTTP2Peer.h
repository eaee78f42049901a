// The server's side of HTTP/2, frame by frame, over a connection whose every byte the test decides.
#pragma once

#include "tests/support/TestTLSServer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::testing {

// A frame as in RFC 9113, section 4.1. Header blocks are passed on as they are.
struct HTTP2Frame {
  enum Type : std::uint8_t {
    data = 0,
    headers = 1,
    reset = 3,
    settings = 4,
    ping = 6,
    goAway = 7,
    windowUpdate = 8
  };
  static constexpr std::uint8_t kEndStream = 1;
  static constexpr std::uint8_t kAcknowledged = 1;
  static constexpr std::uint8_t kEndHeaders = 4;

  std::uint8_t type = 0;
  std::uint8_t flags = 0;
  std::uint32_t stream = 0;
  std::string payload;
};

// The frame as it is sent.
[[nodiscard]] std::string encoded(const HTTP2Frame& frame);

class HTTP2Peer {
 public:
  // Takes the client's preface and sends empty settings.
  explicit HTTP2Peer(TestPeer& peer);

  // The next frame; absent at the end.
  [[nodiscard]] std::optional<HTTP2Frame> next();
  // The stream of the next request once all of it has come; absent at the end.
  [[nodiscard]] std::optional<std::uint32_t> nextRequest();
  // Passes over everything up to a frame of this type; absent when there is none.
  [[nodiscard]] std::optional<HTTP2Frame> nextOf(HTTP2Frame::Type type);

  bool send(const HTTP2Frame& frame);
  // The head of an answer with status 200.
  bool sendHead(std::uint32_t stream, bool endsStream = false);
  bool sendData(std::uint32_t stream, std::string_view bytes, bool endsStream = false);
  bool sendReset(std::uint32_t stream, std::uint32_t error);
  // Nothing above `lastStream` has been or will be looked at.
  bool sendGoAway(std::uint32_t lastStream, std::uint32_t error = 0);

 private:
  TestPeer& peer_;
};

}  // namespace kvl::testing
