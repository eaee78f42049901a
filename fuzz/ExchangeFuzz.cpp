// Any bytes as a server's answers: a request ends once, with an answer or an error and not with
// both, within the limits, and its body is what stands behind the head.
#include "fuzz/Choices.h"
#include "platform/core/ASCII.h"
#include "tests/support/LogCapture.h"

#include <local/platform/Mutex.h>
#include <local/platform/Semaphore.h>
#include <local/platform/URLSession.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvl::fuzz::require;

// The byte that ends what one connection brings; it is no part of HTTP.
constexpr char kConnectionEnd = '\xfe';
constexpr std::size_t kLargestBody = 4096;
constexpr std::size_t kLargestHead = 1024;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

// Gives each connection the next of its answers, whatever is asked, and then ends it. Lives as long
// as the process.
class Server {
 public:
  Server() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    require(bind(listener_.number(), plain, size) == 0 && listen(listener_.number(), 16) == 0 &&
                getsockname(listener_.number(), plain, &size) == 0,
            "the server listens");
    port_ = ntohs(address.sin_port);
    std::thread([this] {
      while (true) serve();
    }).detach();
  }

  [[nodiscard]] std::string address() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/";
  }

  void setAnswers(std::vector<std::string> answers) {
    const kvl::MutexLock lock(mutex_);
    answers_ = std::move(answers);
    std::ranges::reverse(answers_);
  }

 private:
  std::string nextAnswer() {
    const kvl::MutexLock lock(mutex_);
    if (answers_.empty()) return {};
    auto answer = std::move(answers_.back());
    answers_.pop_back();
    return answer;
  }

  void serve() {
    const Descriptor connection(accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
    std::array<char, 4096> request{};
    if (recv(connection.number(), request.data(), request.size(), 0) <= 0) return;
    const auto answer = nextAnswer();
    static_cast<void>(send(connection.number(), answer.data(), answer.size(), MSG_NOSIGNAL));
    // What has not been read would break the connection before the answer has arrived.
    shutdown(connection.number(), SHUT_WR);
    while (recv(connection.number(), request.data(), request.size(), 0) > 0) {
    }
  }

  Descriptor listener_;
  std::uint16_t port_ = 0;
  kvl::Mutex mutex_;
  std::vector<std::string> answers_ KVL_GUARDED_BY(mutex_);  // the next one last
};

Server& server() {
  static auto* const instance = new Server;
  return *instance;
}

struct Ended {
  std::optional<kvl::Data> body;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
  std::atomic<int> times = 0;
};

std::shared_ptr<Ended> exchange(const kvl::URLRequest& request) {
  auto configuration = kvl::URLSessionConfiguration::ephemeral();
  configuration.allowsInsecureHTTPLoads = true;
  configuration.maximumBodySize = kLargestBody;
  configuration.maximumHeaderBytes = kLargestHead;
  const auto session = kvl::URLSession::create(configuration, {});
  const auto ended = std::make_shared<Ended>();
  const auto semaphore = std::make_shared<kvl::Semaphore>(0);
  session
      ->dataTask(request,
                 [ended, semaphore](std::optional<kvl::Data> body, kvl::URLResponseRef response,
                                    std::optional<kvl::Error> error) {
                   ended->body = std::move(body);
                   ended->response = std::move(response);
                   ended->error = std::move(error);
                   ++ended->times;
                   semaphore->signal();
                 })
      ->resume();
  semaphore->wait();
  session->finishTasksAndInvalidate();
  return ended;
}

// What stands behind the last head of an answer.
std::string_view bodyIn(std::string_view answer) {
  while (true) {
    const bool isInterim = answer.substr(0, 12).find(" 1") != std::string_view::npos;
    auto end = answer.find('\n');
    while (end != std::string_view::npos) {
      auto next = answer.find('\n', end + 1);
      if (next == std::string_view::npos) return {};
      const auto line = answer.substr(end + 1, next - end - 1);
      end = next;
      if (kvl::ascii::trimmed(line).empty()) break;
    }
    if (end == std::string_view::npos) return {};
    answer.remove_prefix(end + 1);
    if (!isInterim) return answer;
  }
}

void checkAnswer(const Ended& ended, const std::vector<std::string>& answers) {
  for (const auto& [name, value] : ended.response->headers) {
    require(kvl::ascii::trimmed(name) == name && kvl::ascii::trimmed(value) == value,
            "fields have no blanks around them");
  }
  require(ended.response->httpStatusCode.value_or(0) >= 200, "an answer is a final one");
  if (ended.error || !ended.body) return;
  require(ended.body->size() <= kLargestBody, "a body is no larger than it may");
  const auto& headers = ended.response->headers;
  if (headers.find("Transfer-Encoding") || headers.find("Content-Encoding") || answers.size() != 1)
    return;
  require(bodyIn(answers.front()).starts_with(ended.body->text()), "a body is what was sent");
}

// Whether a redirect might leave this machine.
bool mayLeadElsewhere(std::string_view text) {
  std::string low(text);
  std::ranges::transform(low, low.begin(), kvl::ascii::toLower);
  if (low.find("//") != std::string::npos) return true;
  constexpr std::string_view kField = "location:";
  for (auto at = low.find(kField); at != std::string::npos; at = low.find(kField, at + 1)) {
    const auto value = low.substr(at + kField.size(), low.find('\n', at) - at);
    if (value.find(':') != std::string::npos) return true;
  }
  return false;
}

void checkExchange(kvl::fuzz::Input input) {
  if (mayLeadElsewhere(kvl::fuzz::textOf(input))) return;
  const kvltest::LogCapture silent;
  std::vector<std::string> answers;
  auto rest = kvl::fuzz::textOf(input);
  while (!rest.empty()) {
    answers.emplace_back(rest.substr(0, rest.find(kConnectionEnd)));
    rest.remove_prefix(std::min(rest.size(), answers.back().size() + 1));
  }
  server().setAnswers(answers);
  const auto ended = exchange(kvl::URLRequest(server().address()));
  require(ended->times == 1, "a request ends once");
  require(ended->error.has_value() || ended->response != nullptr, "it ends with something");
  require(!(ended->error && ended->body), "it ends with a body or an error");
  if (ended->response) checkAnswer(*ended, answers);
}

const kvl::fuzz::Target exchanges("exchange", checkExchange);

}  // namespace
