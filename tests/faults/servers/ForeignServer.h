// A server that nobody here wrote, as a process of the test's own. It asks for a certificate of one
// authority and answers these paths:
//
//   /stats       who asks and with which version of TLS
//   /number=7    "number=7", once or many times, as long as the number is below kNumbers
//   /stall       part of a body, and nothing more for long; not gnutls-serv
//   /post        the method and the body; nginx and Go only
//   /gather=16/number=7   as /number=7, but only when 16 of them are there, the last one first; Go
//   only
#pragma once

#include "tests/support/Nginx.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TestCertificates.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kvl::testing {

enum class Software { nginx, openssl, gnutls, go, goWithoutHTTP2 };

struct ForeignServerOptions {
  Software software = Software::nginx;
  // Of the loopback interface.
  std::string address;
  // "1.2" or "1.3", and no other.
  std::string tlsVersion;
};

class ForeignServer {
 public:
  static constexpr int kNumbers = 64;

  // Returns when it listens. Throws std::runtime_error when it does not start.
  ForeignServer(ForeignServerOptions options, const TestIdentity& identity,
                const TestIdentity& clientAuthority);
  ~ForeignServer();

  [[nodiscard]] std::string url(std::string_view path) const;
  // Its clients see their connections close; new ones are refused.
  void kill();
  // It does nothing any more; the kernel still takes connections for it.
  void freeze();
  // How many connections to it are open, taken by it or not.
  [[nodiscard]] int connections() const;
  // Another process at the same port, with a certificate that may be another one.
  void startAgain(const TestIdentity& identity);

 private:
  void write(const std::string& name, const std::string& content) const;
  void writeIdentity(const TestIdentity& identity) const;
  void makeStallingFile();
  [[nodiscard]] std::uint16_t port() const { return nginx_ ? nginx_->port() : port_; }
  [[nodiscard]] kvltest::ChildProcess& process() { return nginx_ ? nginx_->process() : process_; }
  [[nodiscard]] std::string listeningAt(std::uint16_t port) const;
  [[nodiscard]] std::string nginxConfiguration(std::uint16_t port) const;
  [[nodiscard]] std::vector<std::string> command() const;
  [[nodiscard]] bool start();
  // What it has said so far.
  [[nodiscard]] std::string log() const;

  const ForeignServerOptions options_;
  const kvltest::TemporaryDirectory folder_;
  std::unique_ptr<kvltest::Nginx> nginx_;
  kvltest::ChildProcess process_;
  std::uint16_t port_ = 0;
  int stall_ = -1;
};

}  // namespace kvl::testing
