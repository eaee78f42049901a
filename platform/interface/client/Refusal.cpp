#include "platform/interface/client/Refusal.h"

#include <local/platform/Log.h>

#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <optional>

namespace kvl::interface {
namespace {

using End = Decoder::End;

std::string durationText(std::chrono::milliseconds duration) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
  if (seconds == duration) return kvl::format("%@ s", seconds.count());
  return kvl::format("%@ ms", duration.count());
}

std::string deathReason(std::optional<int> status) {
  if (status && WIFSIGNALED(*status)) {
    return kvl::format("the decoder ended with signal %@", WTERMSIG(*status));
  }
  if (status) return kvl::format("the decoder ended with status %@", WEXITSTATUS(*status));
  return "the decoder ended";
}

std::string outcomeReason(Outcome outcome) {
  if (outcome == Outcome::kTooLarge) return "it is too large";
  if (outcome == Outcome::kNotDrawn) return "it could not be drawn";
  return "there is no image inside";
}

// What keeps a memory file from being made.
std::string fileReason(std::uint64_t size) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < size) {
    return kvl::format("the limit for files of this process is %@ bytes", limit.rlim_cur);
  }
  return "no descriptor or memory is left";
}

}  // namespace

bool metMemory(const Decoder::Exchange& exchange) {
  if (exchange.end == End::kAnswered) return exchange.answer.outcome == Outcome::kMemory;
  const auto status = exchange.waitStatus;
  return exchange.end == End::kDied && status && WIFEXITED(*status) &&
         WEXITSTATUS(*status) == kOutOfMemory;
}

bool metLimit(const Decoder::Exchange& exchange) {
  const auto& status = exchange.waitStatus;
  if (exchange.end == End::kDied &&
      (!status || (WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL)))
    return false;
  return exchange.isAlone &&
         (exchange.end == End::kProcessorTime || exchange.end == End::kNoProgress ||
          exchange.end == End::kDied || metMemory(exchange));
}

std::string refusalReason(const Decoder::Exchange& exchange, const Decoder::Limits& limits,
                          std::uint64_t longestFile) {
  if (metMemory(exchange)) return "it takes too much memory";
  switch (exchange.end) {
    case End::kProcessorTime:
      return kvl::format("more than %@ of processor time", durationText(limits.processorTime));
    case End::kNoProgress:
      return kvl::format("no end within %@", durationText(limits.wallTime));
    case End::kDied:
      return deathReason(exchange.waitStatus);
    case End::kNotSent:
      return fileReason(longestFile);
    case End::kAnswered:
      return outcomeReason(exchange.answer.outcome);
    default:
      return "the decoder answered wrongly";
  }
}

}  // namespace kvl::interface
