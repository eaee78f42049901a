// A session whose requests the test answers, and what their handlers got.
#pragma once

#include "tests/session/SessionFixture.h"
#include "tests/support/MainLoop.h"
#include "tests/support/WaitUntil.h"

#include <local/KVLEncodingRoot.h>
#include <local/KVLExtensions.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace kvltest {

// The arguments of a completion handler's calls, and where the last one came.
template <class Result>
struct Outcome {
  int calls = 0;
  Result result;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
  std::thread::id thread;

  [[nodiscard]] auto handler() {
    return [this](Result given, kvl::URLResponseRef head, std::optional<kvl::Error> failure) {
      ++calls;
      result = std::move(given);
      response = std::move(head);
      error = std::move(failure);
      thread = std::this_thread::get_id();
    };
  }
};
using ValueOutcome = Outcome<std::optional<kvl::Value>>;

inline kvl::URLResponseRef responseWith(int status, const kvl::HeaderFields& headers = {}) {
  return std::make_shared<const kvl::URLResponse>(
      kvl::URLResponse{*kvl::URL::parse("https://127.0.0.1:4321/base/a"), status, headers, 11});
}

inline const kvl::Error kLostConnection(kvl::NSURLErrorDomain,
                                        kvl::NSURLErrorNetworkConnectionLost);

inline void onAnotherThread(const std::function<void()>& work) {
  std::thread(work).join();
}

class FetchFixture : public SessionFixture {
 protected:
  FetchFixture() {
    create();
    establish();
    loader->dropTasks();
  }

  [[nodiscard]] FakeDataTask& task() const { return *loader->tasks().back(); }
  [[nodiscard]] const kvl::URLRequest& sent() const { return task().originalRequest(); }
  [[nodiscard]] std::string_view sentHeader(std::string_view name) const {
    return sent().headers().find(name).value_or("(absent)");
  }
  void answer(std::string_view body, int status = 200) const {
    task().complete(kvl::Data::fromText(body), responseWith(status), std::nullopt);
  }
  // From now on nobody is there to send a request.
  void disconnect() const { session->disconnectAfterError(); }
  // Lets go of the session and returns what tells whether it is gone.
  [[nodiscard]] std::weak_ptr<KVLSession> release() {
    queue->dropPending();
    return std::exchange(session, nullptr);
  }
  [[nodiscard]] std::string lastLine() const {
    return log.lines().empty() ? std::string() : log.lines().back();
  }
};

}  // namespace kvltest
