#include "tests/qt/web/WebFixture.h"

#include "tests/support/WaitUntil.h"

#include <unistd.h>

#include <QGuiApplication>
#include <QSignalSpy>
#include <cstdlib>

namespace kvltest {
namespace {

using kvl::testing::httpResponse;
using kvl::testing::makeTestAuthority;
using kvl::testing::makeTestIdentity;
using kvl::testing::TestPeer;

// One application for all tests: the engine starts once in a process.
class Engine final : public ::testing::Environment {
 public:
  void SetUp() override {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("QT_QUICK_BACKEND", "software", 1);
    // There is neither a graphics card nor, for root, a sandbox.
    setenv("QTWEBENGINE_DISABLE_SANDBOX", "1", 1);
    setenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu", 1);
    kvl::qt::PageRelay::registerScheme();
    application_ = std::make_unique<QGuiApplication>(count_, arguments_);
  }
  void TearDown() override { application_.reset(); }

 private:
  int count_ = 1;
  std::string name_ = "kvltest";
  char* arguments_[2] = {name_.data(), nullptr};
  std::unique_ptr<QGuiApplication> application_;
};

[[maybe_unused]] ::testing::Environment* const kEngine =
    ::testing::AddGlobalTestEnvironment(new Engine);

std::string pathOf(const std::string& request) {
  const auto begin = request.find(' ') + 1;
  return request.substr(begin, request.find_first_of(" ?", begin) - begin);
}

}  // namespace

void PageService::on(const std::string& path, Route route) {
  const kvl::MutexLock lock(mutex_);
  routes_[path] = std::move(route);
}

PageService::PageService()
    : root_(makeTestAuthority()),
      identity_(makeTestIdentity({}, &root_)),
      server_({.identity = &identity_, .clientAuthority = &root_},
              [this](TestPeer& peer) { serve(peer); }) {}

void PageService::page(const std::string& path, const std::string& html,
                       const std::string& fields) {
  on(path, [=](TestPeer& peer, const std::string&) {
    peer.write(answerOf(html, "text/html; charset=utf-8", fields));
  });
}

std::vector<std::string> PageService::requests(std::string_view beginning) const {
  const kvl::MutexLock lock(mutex_);
  std::vector<std::string> found;
  for (const auto& request : requests_)
    if (request.starts_with(beginning)) found.push_back(request);
  return found;
}

std::shared_ptr<KVLNotarySignature> PageService::signature(const std::string& client) const {
  const auto identity = makeTestIdentity({.commonName = client}, &root_);
  const auto signature = signatureFor(url());
  signature->setAnchor(root_.certificateRef());
  signature->setIdentity(identity.identity());
  signature->setClient(identity.certificateRef());
  return signature;
}

void PageService::serve(TestPeer& peer) {
  static_cast<void>(waitUntil([this] { return reads.load(); }));
  for (auto request = peer.readRequest(); !request.empty(); request = peer.readRequest()) {
    routeOf(request)(peer, request);
    if (pathOf(request).starts_with("/last")) return;
  }
}

PageService::Route PageService::routeOf(const std::string& request) {
  const kvl::MutexLock lock(mutex_);
  requests_.push_back(request);
  const auto route = routes_.find(pathOf(request));
  if (route != routes_.end()) return route->second;
  return [](TestPeer& peer, const std::string&) {
    peer.write(httpResponse("nothing here", "404 Not Found", "Content-Type: text/plain\r\n"));
  };
}

std::string bodyOf(const std::string& request) {
  return request.substr(request.find("\r\n\r\n") + 4);
}

std::string answerOf(std::string_view body, const std::string& type, const std::string& fields) {
  return httpResponse(body, "200 OK", "Content-Type: " + type + "\r\n" + fields);
}

WebTest::WebTest() {
  session = KVLSession::sessionWithNotary(notary, {});
  relay = std::make_unique<kvl::qt::PageRelay>(session, profile);
  QObject::connect(relay.get(), &kvl::qt::PageRelay::requestFailed,
                   [this](const QString& path, const QString& why) {
                     failures.append(path + QStringLiteral(": ") + why);
                   });
}

WebTest::~WebTest() {
  page.reset();
  relay.reset();
  session->end();
}

void WebTest::notarise(const std::string& client) {
  session->enqueueNotarisation();
  ASSERT_TRUE(waitUntil([this] { return notary->outstanding() == 1; }));
  notary->answer(service.signature(client));
  ASSERT_EQ(session->state(), KVLSessionStateEstablished);
}

bool WebTest::load(const QString& path) {
  QSignalSpy finished(page.get(), &QWebEnginePage::loadFinished);
  page->load(relay->urlOf(path));
  return eventually([&] { return !finished.empty(); }) && finished.back().front().toBool();
}

bool WebTest::show(const std::string& html) {
  service.page("/page", html);
  notarise();
  return load(QStringLiteral("/page"));
}

bool WebTest::logs(const QString& line) {
  const bool found = eventually([&] { return page->lines.contains(line); });
  EXPECT_TRUE(found) << page->lines.join(QLatin1Char('\n')).toStdString();
  return found;
}

}  // namespace kvltest
