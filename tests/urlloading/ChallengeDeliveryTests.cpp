// What has come before a challenge is not kept back by it.
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <thread>
#include <utility>

namespace kvl::testing {
namespace {

constexpr std::chrono::seconds kDeliveryTime{20};

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Takes one connection and, once it is opened, passes on what comes on it and for it.
class FloodGate {
 public:
  explicit FloodGate(std::uint16_t target) : target_(target) {
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener_, generic, size), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    EXPECT_EQ(getsockname(listener_, generic, &size), 0);
    port_ = ntohs(address.sin_port);
    carrier_ = std::thread([this] { carry(); });
  }
  ~FloodGate() {
    open();
    for (const int end : {listener_, client_.load(), server_}) shutdown(end, SHUT_RDWR);
    carrier_.join();
    for (const int end : {listener_, client_.load(), server_}) close(end);
  }
  FloodGate(const FloodGate&) = delete;
  FloodGate& operator=(const FloodGate&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  // Until somebody has begun to speak.
  void waitForClient() { hasClient_.wait(); }
  void open() { isOpen_.signal(); }

 private:
  void carry() {
    client_ = accept(listener_, nullptr, nullptr);
    char first = 0;
    static_cast<void>(recv(client_, &first, 1, MSG_PEEK));
    hasClient_.signal();
    isOpen_.wait();
    const auto address = loopback(target_);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (connect(server_, generic, sizeof address) != 0) return;
    std::array<pollfd, 2> watched = {{{client_, POLLIN, 0}, {server_, POLLIN, 0}}};
    while (poll(watched.data(), watched.size(), -1) > 0) {
      for (const std::size_t from : {0U, 1U}) {
        if (watched[from].revents != 0 && !pass(watched[from].fd, watched[1 - from].fd)) return;
      }
    }
  }
  static bool pass(int from, int to) {
    std::array<char, 16384> bytes{};
    const auto count = read(from, bytes.data(), bytes.size());
    return count > 0 && write(to, bytes.data(), static_cast<std::size_t>(count)) == count;
  }

  const std::uint16_t target_;
  const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int server_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::atomic<int> client_ = -1;
  std::uint16_t port_ = 0;
  Semaphore hasClient_;
  Semaphore isOpen_;
  std::thread carrier_;
};

// Whether something that the server at this port has sent waits to be read.
bool hasArrived(std::uint16_t port) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename().string());
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    int waiting = 0;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
        peer.sin_family == AF_INET && ntohs(peer.sin_port) == port &&
        ioctl(descriptor, FIONREAD, &waiting) == 0 && waiting > 0)
      return true;
  }
  return false;
}

// Answers the first challenge, and the others when it is told to.
class HesitantDelegate final : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& session, const Challenge& challenge,
                           ChallengeHandler completionHandler) override {
    if (trustChallenges() == 0)
      return RecordingDelegate::didReceiveChallenge(session, challenge,
                                                    std::move(completionHandler));
    {
      const MutexLock lock(mutex_);
      answer_ = [this, &session, challenge, handler = std::move(completionHandler)] {
        RecordingDelegate::didReceiveChallenge(session, challenge, handler);
      };
    }
    isAsked_.signal();
  }

  void waitForChallenge() { ASSERT_TRUE(isAsked_.waitFor(kDeliveryTime)); }
  void answer() {
    MutexLock lock(mutex_);
    const auto answer = std::exchange(answer_, nullptr);
    lock.unlock();
    answer();
  }

 private:
  Semaphore isAsked_;
  Mutex mutex_;
  std::function<void()> answer_ KVL_GUARDED_BY(mutex_);
};

class ChallengeDeliveryTest : public URLSessionTest {
 protected:
  ChallengeDeliveryTest() { judge->anchor = delegate->anchor; }

  const std::shared_ptr<HesitantDelegate> judge = std::make_shared<HesitantDelegate>();
  const std::shared_ptr<URLSession> loading = URLSession::create(anyPeers(), judge);
};

// One pass of reading finds an answer's head, and after it the trust of another server.
TEST_F(ChallengeDeliveryTest, AnAnswersHeadComesBeforeTheNextConnectionIsTrusted) {
  Semaphore isAsked;
  Semaphore mayAnswer;
  const TestTLSServer answeringFirst({.identity = &server()}, [&](TestPeer& peer) {
    static_cast<void>(peer.readRequest());
    isAsked.signal();
    mayAnswer.wait();
    peer.write("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n");
    static_cast<void>(peer.readRequest());
  });
  const TestTLSServer other({.identity = &server()}, answering(httpResponse("other")));
  const TestTLSServer last({.identity = &server()}, answering(httpResponse("last")));
  FloodGate gate(other.port());

  Semaphore headCame;
  const auto streaming = loading->streamingTask(
      URLRequest(answeringFirst.url("127.0.0.1")),
      {.head = [&](const URLResponseRef&) { headCame.signal(); }, .piece = {}, .end = {}});
  streaming->resume();
  isAsked.wait();
  OutcomeBox otherBox;
  loading
      ->dataTask(URLRequest("https://127.0.0.1:" + std::to_string(gate.port()) + "/"),
                 otherBox.handler())
      ->resume();
  gate.waitForClient();
  OutcomeBox lastBox;
  loading->dataTask(URLRequest(last.url("127.0.0.1")), lastBox.handler())->resume();
  judge->waitForChallenge();  // meanwhile nothing is read
  mayAnswer.signal();
  gate.open();
  ASSERT_TRUE(kvltest::waitUntil(
      [&] { return hasArrived(answeringFirst.port()) && hasArrived(gate.port()); }));
  judge->answer();
  judge->waitForChallenge();
  EXPECT_TRUE(headCame.waitFor(kDeliveryTime));
  judge->answer();
  EXPECT_EQ(otherBox.wait().text(), "other");
  EXPECT_EQ(lastBox.wait().text(), "last");
  streaming->cancel();
}

}  // namespace
}  // namespace kvl::testing
