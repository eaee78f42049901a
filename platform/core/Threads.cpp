#include "platform/core/Threads.h"

#include "platform/core/BlockedSignals.h"
#include "platform/core/ThisThread.h"

#include <local/platform/Log.h>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace kvl::core {
namespace {

// A connection to the session bus takes about ten: sockets, and wake-ups of main contexts.
constexpr std::size_t kSpareDescriptors = 24;

void note(const char* name, const std::exception& error) noexcept {
  try {
    log(LogCategory::general, LogLevel::error, "no thread for %@: %@", name, error.what());
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): then without a line
  }
}

}  // namespace

bool startThread(const char* name, std::function<void()> body) noexcept {
  static std::atomic<bool> failed = false;
  try {
    const BlockedSignals inheritedByTheThread;
    std::thread([name, body = std::move(body)]() mutable {
      nameThisThread(name);
      body();
      body = nullptr;
    }).detach();
    failed = false;
    return true;
  } catch (const std::exception& error) {
    if (!failed.exchange(true)) note(name, error);
    return false;
  }
}

bool hasSpareDescriptors() noexcept {
  std::array<int, kSpareDescriptors> spare{};
  std::size_t count = pipe2(spare.data(), O_CLOEXEC) == 0 ? 2 : 0;
  // Copies cost a tenth of as many new ones.
  while (count > 0 && count < spare.size() &&
         (spare[count] = fcntl(spare[0], F_DUPFD_CLOEXEC, 0)) >= 0)
    ++count;
  for (std::size_t i = 0; i < count; ++i) close(spare[i]);
  return count == spare.size();
}

bool hasSpareThread() noexcept {
  pthread_t thread{};
  const BlockedSignals inheritedByTheThread;
  const auto nothing = [](void*) -> void* { return nullptr; };
  return pthread_create(&thread, nullptr, nothing, nullptr) == 0 &&
         pthread_join(thread, nullptr) == 0;
}

HomeProcess::HomeProcess() noexcept : identifier_(getpid()) {}

bool HomeProcess::isThisProcess() const noexcept {
  return getpid() == identifier_;
}

}  // namespace kvl::core
