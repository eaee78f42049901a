// The I/O threads of the process. They are detached, and parked before the process's libraries are
// taken down at exit.
#pragma once

#include <functional>
#include <memory>

namespace kvl::urlloading {

// Whoever runs an I/O thread.
class Abandonable {
 public:
  virtual ~Abandonable() = default;
  // Makes the thread's body return as soon as it can, whatever is under way. From any thread.
  virtual void abandon() = 0;
};

// Starts a detached thread that runs `body` with every signal blocked. False when the system has
// none to give, or the process is exiting.
[[nodiscard]] bool startIOThread(const std::shared_ptr<Abandonable>& owner,
                                 std::function<void()> body);

}  // namespace kvl::urlloading
