#include "platform/interface/decoder/SystemCalls.h"

#include "platform/interface/decoder/Sanitizer.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <utility>

namespace kvl::decoder {
namespace {

constexpr int kSetVMA = 0x53564d41;  // PR_SET_VMA, by which the C library names its memory

// Without arguments that matter. A name that this machine's kernel does not have is passed over.
constexpr const char* kAllowed[] = {
    // memory
    "brk", "mmap", "munmap", "mremap", "mprotect", "madvise",
    // fonts and configuration
    "read", "pread64", "readv", "lseek", "_llseek", "close", "fstat", "fstat64", "newfstatat",
    "fstatat64", "statx", "stat", "stat64", "lstat", "lstat64", "access", "faccessat", "faccessat2",
    "getdents64", "readlink", "readlinkat", "fstatfs", "fstatfs64", "statfs", "statfs64", "getcwd",
    "fadvise64",
    // the descriptors that the process has
    "recvmsg", "sendmsg", "write", "writev", "poll", "ppoll",
    // threads
    "futex", "set_robust_list", "rseq", "gettid", "sched_yield", "sched_getaffinity", "sigaltstack",
    "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigreturn", "restart_syscall", "exit",
    "exit_group", "tgkill", "eventfd2", "membarrier",
    // time, chance, itself
    "clock_gettime", "clock_getres", "clock_nanosleep", "nanosleep", "gettimeofday", "getrusage",
    "getrandom", "getpid", "getppid", "getuid", "geteuid", "getgid", "getegid", "uname", "sysinfo",
    // the parent only
    "clone", "fork", "vfork", "wait4", "waitid", "pidfd_open", "seccomp", "dup3", "close_range"};

// The check of types reads memory through pipes.
constexpr const char* kSanitizerCalls[] = {"pipe", "pipe2"};

constexpr const char* kParentOnly[] = {"fork",       "vfork",   "wait4", "waitid",
                                       "pidfd_open", "seccomp", "dup3",  "close_range"};

constexpr int kReadOnlyFlags =
    O_ACCMODE | O_CREAT | O_TRUNC | O_APPEND | (O_TMPFILE & ~O_DIRECTORY);

// None of those by which a descriptor sends signals to other processes.
constexpr int kDescriptorCommands[] = {F_GETFD, F_SETFD,         F_GETFL,    F_SETFL,
                                       F_DUPFD, F_DUPFD_CLOEXEC, F_GET_SEALS};

std::uint32_t actionOf(DeniedCall denied) {
  return denied == DeniedCall::kTrap ? SCMP_ACT_TRAP : SCMP_ACT_ERRNO(EPERM);
}

class Rules {
 public:
  explicit Rules(std::uint32_t otherwise) : rules_(seccomp_init(otherwise)) {
    if (rules_ == nullptr) return;
    // The program gives its privileges up itself, also where there are no filters.
    seccomp_attr_set(rules_, SCMP_FLTATR_CTL_NNP, 0);
    seccomp_attr_set(rules_, SCMP_FLTATR_CTL_OPTIMIZE, 2);
  }

  void add(std::uint32_t action, const char* name,
           std::initializer_list<scmp_arg_cmp> arguments = {}) {
    const int number = seccomp_syscall_resolve_name(name);
    if (rules_ == nullptr || number < 0) return;
    if (seccomp_rule_add_array(rules_, action, number, static_cast<unsigned>(arguments.size()),
                               arguments.begin()) != 0) {
      seccomp_release(std::exchange(rules_, nullptr));
    }
  }
  void add(std::uint32_t action, std::span<const char* const> names) {
    for (const char* name : names) add(action, name);
  }

  // With one rule missing the whole is worth nothing.
  [[nodiscard]] scmp_filter_ctx take() { return std::exchange(rules_, nullptr); }

 private:
  scmp_filter_ctx rules_;
};

scmp_arg_cmp equals(unsigned argument, std::uint64_t value) {
  return {argument, SCMP_CMP_EQ, value, 0};
}

scmp_arg_cmp differs(unsigned argument, std::uint64_t value) {
  return {argument, SCMP_CMP_NE, value, 0};
}

scmp_arg_cmp masked(unsigned argument, std::uint64_t mask, std::uint64_t value) {
  return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

void allowWithArguments(Rules& rules) {
  rules.add(SCMP_ACT_ALLOW, "openat", {masked(2, kReadOnlyFlags, O_RDONLY)});
  rules.add(SCMP_ACT_ALLOW, "open", {masked(1, kReadOnlyFlags, O_RDONLY)});
  for (const int command : kDescriptorCommands) {
    rules.add(SCMP_ACT_ALLOW, "fcntl", {equals(1, static_cast<std::uint64_t>(command))});
    rules.add(SCMP_ACT_ALLOW, "fcntl64", {equals(1, static_cast<std::uint64_t>(command))});
  }
  for (const std::uint64_t option : {PR_SET_NAME, kSetVMA, PR_SET_PDEATHSIG}) {
    rules.add(SCMP_ACT_ALLOW, "prctl", {equals(0, option)});
  }
  rules.add(SCMP_ACT_ALLOW, "prlimit64", {equals(0, 0)});
}

}  // namespace

SystemCallFilter SystemCallFilter::forParent(DeniedCall denied) {
  Rules rules(actionOf(denied));
  rules.add(SCMP_ACT_ALLOW, kAllowed);
  if constexpr (kSanitized) rules.add(SCMP_ACT_ALLOW, kSanitizerCalls);
  allowWithArguments(rules);
  // Its flags are in memory, where no filter sees them. The C library then takes clone.
  rules.add(SCMP_ACT_ERRNO(ENOSYS), "clone3");
  return SystemCallFilter(rules.take());
}

SystemCallFilter SystemCallFilter::forWorker(DeniedCall denied) {
  Rules rules(SCMP_ACT_ALLOW);
  const auto refusal = actionOf(denied);
  rules.add(refusal, kParentOnly);
  rules.add(refusal, "clone", {masked(0, CLONE_THREAD, 0)});
  rules.add(refusal, "mmap", {masked(2, PROT_EXEC, PROT_EXEC)});
  rules.add(refusal, "mprotect", {masked(2, PROT_EXEC, PROT_EXEC)});
  rules.add(refusal, "tgkill", {differs(0, static_cast<std::uint64_t>(getpid()))});
  rules.add(refusal, "prctl", {equals(0, PR_SET_PDEATHSIG)});
  rules.add(refusal, "prlimit64", {differs(1, RLIMIT_AS), differs(2, 0)});
  return SystemCallFilter(rules.take());
}

SystemCallFilter::~SystemCallFilter() {
  seccomp_release(rules_);
}

SystemCallFilter::SystemCallFilter(SystemCallFilter&& other) noexcept
    : rules_(std::exchange(other.rules_, nullptr)) {}

bool SystemCallFilter::apply() const {
  return rules_ != nullptr && seccomp_load(rules_) == 0;
}

}  // namespace kvl::decoder
