// Whether the server has declined a request.
#pragma once

#include "platform/urlloading/TLSConnection.h"

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace kvl::urlloading {

// An HTTP/2 server may say that it has not looked at a request and will not: it refuses the stream,
// or ends the connection after an earlier one (RFC 9113, 8.7). Such a request may go out again, one
// that is lost may not, and libcurl fails or repeats both in the same way. Only its texts tell them
// apart; from a libcurl with other texts than 7.88 and 8.14, declined requests fail like lost ones.
// With the number of the stream libcurl writes a line for each field of the request, which costs
// more than all else that is done for it here. So only the first stream's number is read of a text,
// and the others are counted; libcurl speaks of the rest once the request has gone out. One
// exchange's own, on the I/O thread only; must outlive the easy handle.
class DeclineWatch {
 public:
  // The exchange of `easy` is about to send its request on this connection, which multiplexes. Has
  // libcurl tell its progress, upon which `noteSent` is to be called.
  void begin(CURL* easy, std::shared_ptr<TLSConnection> connection);
  // libcurl has tried to send the request, and read nothing yet. False when that is known already.
  bool noteSent(CURL* easy) noexcept;
  // What libcurl says of the exchange, or of its connection, which others may share.
  void take(std::string_view text) noexcept;
  [[nodiscard]] bool isDeclined() const noexcept;

 private:
  void setStream(std::uint32_t stream) noexcept;
  static int onDebug(CURL*, curl_infotype kind, char* bytes, std::size_t size, void* watch);

  std::shared_ptr<TLSConnection> connection_;
  std::uint32_t stream_ = 0;  // 0: none yet
  // The number of its stream, if libcurl sends the request.
  std::uint32_t expected_ = 0;
  bool refused_ = false;
};

}  // namespace kvl::urlloading
