#include "tests/faults/NumberedService.h"

#include "devservice/Authority.h"

#include <utility>

namespace kvltest {
namespace {

using kvl::testing::CertificateOptions;
using kvl::testing::httpResponse;
using kvl::testing::TestIdentity;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;

constexpr const char* kStream =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n"
    "event: number\nid: 1\ndata: one\n\n";

TestIdentity authorityOf(const std::filesystem::path& directory) {
  const devservice::StateDirectory state(directory);
  const auto authority = devservice::Authority::open(state);
  const auto key = state.read("ca.key");
  X509* const certificate = authority.certificate();
  X509_up_ref(certificate);
  return {
      kvl::security::OpenSSLPtr<EVP_PKEY>(key ? devservice::keyFromPem(*key).release() : nullptr),
      kvl::security::OpenSSLPtr<X509>(certificate)};
}

// The target of a request's first line.
std::string targetOf(const std::string& request) {
  const auto begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

}  // namespace

NumberedService::NumberedService(const std::filesystem::path& stateDirectory)
    : authority_(authorityOf(stateDirectory)), identity_(makeIdentity({})) {
  start();
}

NumberedService::~NumberedService() = default;

std::string NumberedService::url() const {
  return "https://127.0.0.1:" + std::to_string(port_) + "/";
}

TestIdentity NumberedService::makeIdentity(const CertificateOptions& options) const {
  return kvl::testing::makeTestIdentity(options, &authority_);
}

NumberedService::Options NumberedService::options() const {
  return {.identity = &identity_, .clientAuthority = &authority_};
}

void NumberedService::serve(Fault fault) {
  const kvl::MutexLock lock(mutex_);
  fault_ = std::move(fault);
  answer_ = nullptr;
}

void NumberedService::serveEach(Answer answer) {
  const kvl::MutexLock lock(mutex_);
  answer_ = std::move(answer);
}

void NumberedService::stop() {
  server_.reset();
}

void NumberedService::start() {
  start(options());
}

void NumberedService::start(Options options) {
  stop();
  options.port = port_;
  server_ =
      std::make_unique<TestTLSServer>(std::move(options), [this](TestPeer& peer) { handle(peer); });
  port_ = server_->port();
}

void NumberedService::handle(TestPeer& peer) {
  auto request = peer.readRequest();
  while (!request.empty() && handle(peer, targetOf(request))) request = peer.readRequest();
}

bool NumberedService::handle(TestPeer& peer, const std::string& target) {
  Fault fault;
  Answer answer;
  {
    const kvl::MutexLock lock(mutex_);
    fault = fault_;
    answer = answer_;
  }
  if (fault) {
    fault(peer);
    return false;
  }
  if (answer) return answer(peer, target);
  const bool streams = target.starts_with("/events");
  return peer.write(streams ? kStream : httpResponse("{\"target\":\"" + target + "\"}"));
}

}  // namespace kvltest
