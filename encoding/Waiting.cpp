#include "encoding/Waiting.h"

#include "platform/core/ProcessExit.h"
#include "platform/dispatch/MainLoop.h"

#include <local/platform/Log.h>

std::optional<kvl::Error> kvl::encoding::waitForSemaphore(Semaphore& semaphore,
                                                          const KVLEncoding::WaitReason& reason,
                                                          std::chrono::nanoseconds limit) {
  // While the process exits nobody may be left to signal, so that the limit holds everywhere.
  if (isMainThread() && !core::isExiting()) {
    log(LogCategory::loading, LogLevel::warning,
        "WARNING: waiting for semaphore on main thread: %@", reason.text());
    dispatch::serveMainLoopUntilFree(semaphore);
    return std::nullopt;
  }
  if (semaphore.waitFor(limit)) return std::nullopt;
  return Error(NSPOSIXErrorDomain, kTimedOutPOSIXCode);
}

std::optional<kvl::Error> KVLEncoding::waitForSemaphore(kvl::Semaphore& semaphore,
                                                        const WaitReason& reason) {
  return kvl::encoding::waitForSemaphore(semaphore, reason, kvl::encoding::kLongestWait);
}
