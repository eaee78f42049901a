#include "tests/ipc/CallRecorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

namespace kvltest {
namespace {

constexpr std::chrono::seconds kCallPatience{60};

template <class T>
T copied(std::mutex& mutex, const T& value) {
  std::lock_guard lock(mutex);
  return value;
}

}  // namespace

void CallRecorder::note(const std::string& event, const std::function<void()>& more) {
  std::lock_guard lock(mutex_);
  events_.push_back(event);
  threads_.push_back(std::this_thread::get_id());
  if (more) more();
  changed_.notify_all();
}

kvl::ipc::ServiceConnection::Handler CallRecorder::noting(const std::string& event) {
  return [self = shared_from_this(), event] { self->note(event); };
}

void CallRecorder::send(kvl::ipc::ServiceConnection& connection,
                        const std::optional<std::string>& path, const kvl::Dictionary& request,
                        const std::function<void()>& during) {
  connection.setInterruptionHandler(noting("interruption"));
  connection.setInvalidationHandler(noting("invalidation"));
  const auto self = shared_from_this();
  connection.sendNotary(
      path, request,
      [self, during](const kvl::Error& error) {
        if (during) during();
        self->note("error", [&] {
          self->channelError_ = error;
          self->ended_ = true;
        });
      },
      [self, during](std::optional<kvl::Dictionary> reply, std::optional<kvl::Error> error) {
        if (during) during();
        self->note("reply", [&] {
          self->reply_ = std::move(reply);
          self->replyError_ = std::move(error);
          self->ended_ = true;
        });
      });
}

void CallRecorder::waitForEnd() {
  std::unique_lock lock(mutex_);
  ASSERT_TRUE(changed_.wait_for(lock, kCallPatience, [&] { return ended_; }));
}

bool CallRecorder::waitForEvents(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kCallPatience, [&] { return events_.size() >= count; });
}

std::vector<std::string> CallRecorder::events() const {
  return copied(mutex_, events_);
}
std::optional<kvl::Error> CallRecorder::channelError() const {
  return copied(mutex_, channelError_);
}
std::optional<kvl::Dictionary> CallRecorder::reply() const {
  return copied(mutex_, reply_);
}
std::optional<kvl::Error> CallRecorder::replyError() const {
  return copied(mutex_, replyError_);
}
std::vector<std::thread::id> CallRecorder::threads() const {
  return copied(mutex_, threads_);
}

}  // namespace kvltest
