#include "platform/dispatch/TimerService.h"
#include "platform/dispatch/WorkerPool.h"

#include <local/platform/DispatchQueue.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <utility>

namespace kvl {
namespace {

// Posts to an Asio executor: the pool's own for a concurrent queue, a strand for a serial one.
template <class Executor>
class PoolQueue final : public DispatchQueue {
 public:
  PoolQueue(std::string label, Executor executor)
      : label_(std::move(label)), executor_(std::move(executor)) {}

  void async(Block block) override { asio::post(executor_, std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    dispatch::fireAfter(delay, [executor = executor_, block = std::move(block)]() mutable {
      asio::post(executor, std::move(block));
    });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  const Executor executor_;
};

template <class Executor>
std::shared_ptr<DispatchQueue> makeQueue(std::string label, Executor executor) {
  return std::make_shared<PoolQueue<Executor>>(std::move(label), std::move(executor));
}

}  // namespace

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::concurrent(std::string label) {
  return makeQueue(std::move(label), dispatch::workerContext().get_executor());
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  return makeQueue(std::move(label), asio::make_strand(dispatch::workerContext()));
}

bool isMainThread() noexcept {
  return syscall(SYS_gettid) == getpid();
}

}  // namespace kvl
