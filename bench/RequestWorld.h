// What requests are measured against: an nginx on one core that asks for certificates, and the rest
// of the machine for the clients.
#pragma once

#include "tests/support/Nginx.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvlbench {

class RequestWorld {
 public:
  RequestWorld();

  // `--folder` and `--port`, for a probe.
  [[nodiscard]] std::vector<std::string> arguments(int httpVersion) const;
  // Connections that the server has accepted so far, those of this function left out.
  [[nodiscard]] std::size_t acceptedConnections();
  // Where files may be put.
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  [[nodiscard]] std::string configuration(std::uint16_t port);

  kvltest::TemporaryDirectory folder_;
  std::uint16_t http2Port_ = 0;
  std::size_t asked_ = 0;
  // Last: it reads what the others have made ready.
  kvltest::Nginx nginx_;
};

}  // namespace kvlbench
