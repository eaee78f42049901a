// An HTTPS client that sees every write of the service by itself: TLS keeps writes apart.
#pragma once

#include "devservice/OpenSSLPointers.h"

#include <openssl/ssl.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvltest {

class RecordClient {
 public:
  // Connects to the service at `url` on 127.0.0.1 with the files of
  // `ProgramFixture::obtainIdentity()` in `identity`. Throws std::runtime_error when it cannot.
  RecordClient(const std::string& url, const std::filesystem::path& identity);
  // Leaves, whatever is still to come.
  ~RecordClient();
  RecordClient(const RecordClient&) = delete;
  RecordClient& operator=(const RecordClient&) = delete;

  // Sends the request and reads the head of the response. `fields` are whole lines.
  std::string get(const std::string& target, const std::string& fields = "");
  // What the next write brought; none when the connection has ended. A test fails that waits for a
  // minute.
  [[nodiscard]] std::optional<std::string> readRecord();
  // What one HTTP chunk brought that came by itself; empty for the last one. A test fails that gets
  // anything else.
  [[nodiscard]] std::string readChunk();
  // The chunks up to the end of the response.
  [[nodiscard]] std::vector<std::string> readChunks();

 private:
  using ContextPtr = std::unique_ptr<SSL_CTX, devservice::Release<SSL_CTX_free>>;
  using TLSPtr = std::unique_ptr<SSL, devservice::Release<SSL_free>>;

  int socket_;
  ContextPtr context_;
  TLSPtr tls_;
};

}  // namespace kvltest
