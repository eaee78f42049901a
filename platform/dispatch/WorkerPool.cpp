#include "platform/dispatch/WorkerPool.h"

#include "platform/core/BlockedSignals.h"

#include <pthread.h>

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <system_error>
#include <thread>

namespace kvl::dispatch {
namespace {

// More threads than cores, since hosts' handlers may block.
constexpr unsigned kFewestThreads = 4;
constexpr unsigned kMostThreads = 8;

struct Pool {
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(context);

  Pool() {
    const core::BlockedSignals blocked;
    const auto threads =
        std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads);
    startThread();
    try {
      for (unsigned i = 1; i < threads; ++i) startThread();
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch)
      // Fewer threads do; without a single one nothing would ever run.
    }
  }

  void startThread() {
    std::thread([this] {
      pthread_setname_np(pthread_self(), "korvale.worker");
      context.run();
    }).detach();
  }
};

}  // namespace

asio::io_context& workerContext() {
  static auto& pool = *new Pool;
  return pool.context;
}

}  // namespace kvl::dispatch
