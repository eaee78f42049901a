#include "tests/interface/decoder/Attempts.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

namespace kvltest {
namespace {

using Try = long (*)(const std::string& argument);

template <class... Arguments>
long call(long number, Arguments... arguments) {
  return syscall(number, arguments...);
}

long openWith(const std::string& path, int flags) {
  return call(SYS_openat, AT_FDCWD, path.c_str(), flags, 0600);
}

// A child that came about all the same ends at once.
long inChild(long result) {
  if (result == 0) _exit(0);
  return result;
}

long mapped(int protection) {
  return call(SYS_mmap, nullptr, 4096L, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0L);
}

long madeExecutable(const std::string& /*argument*/) {
  const long page = mapped(PROT_READ | PROT_WRITE);
  return page < 0 ? page : call(SYS_mprotect, page, 4096L, PROT_READ | PROT_EXEC);
}

// To what nobody would be kept from, but that a limit stays as it is.
long lowered(const std::string& /*argument*/) {
  rlimit limit{};
  getrlimit(RLIMIT_CPU, &limit);
  limit.rlim_cur -= 1;
  return call(SYS_prlimit64, 0, RLIMIT_CPU, &limit, nullptr);
}

long raised(const std::string& /*argument*/) {
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  return call(SYS_prlimit64, 0, RLIMIT_AS, &none, nullptr);
}

long connected(const std::string& path) {
  const long socket = call(SYS_socket, AF_UNIX, SOCK_STREAM, 0);
  if (socket < 0) return socket;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return call(SYS_connect, socket, &address, sizeof address);
}

long connectedByTCP(const std::string& /*argument*/) {
  const long socket = call(SYS_socket, AF_INET, SOCK_STREAM, 0);
  if (socket < 0) return socket;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(1);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return call(SYS_connect, socket, &address, sizeof address);
}

long executed(const std::string& path) {
  std::array<char*, 2> arguments{const_cast<char*>(path.c_str()), nullptr};
  return call(SYS_execve, path.c_str(), arguments.data(), nullptr);
}

long thread(const std::string& /*argument*/) {
  int value = -1;
  std::thread([&value] { value = 0; }).join();
  return value;
}

long descriptors(const std::string& /*argument*/) {
  long count = 0;
  for (int number = 0; number < 1024; ++number) count += fcntl(number, F_GETFD) < 0 ? 0 : 1;
  return count;
}

long number(const std::string& text) {
  return std::strtol(text.c_str(), nullptr, 10);
}

const std::map<std::string, Try>& files() {
  static const std::map<std::string, Try> tries{
      {"open", [](const std::string& path) { return openWith(path, O_RDONLY); }},
      {"list", [](const std::string& path) { return openWith(path, O_RDONLY | O_DIRECTORY); }},
      {"write", [](const std::string& path) { return openWith(path, O_WRONLY); }},
      {"change", [](const std::string& path) { return openWith(path, O_RDWR); }},
      {"make", [](const std::string& path) { return openWith(path, O_RDONLY | O_CREAT); }},
      {"empty", [](const std::string& path) { return openWith(path, O_RDONLY | O_TRUNC); }},
      {"hidden", [](const std::string& path) { return openWith(path, O_TMPFILE | O_RDWR); }},
      {"remove",
       [](const std::string& path) { return call(SYS_unlinkat, AT_FDCWD, path.c_str(), 0); }},
      {"folder",
       [](const std::string& path) { return call(SYS_mkdirat, AT_FDCWD, path.c_str(), 0700); }},
      {"mode",
       [](const std::string& path) { return call(SYS_fchmodat, AT_FDCWD, path.c_str(), 0777); }},
      {"open-how", [](const std::string& path) {
         const std::array<std::uint64_t, 3> how{O_RDONLY, 0, 0};
         return call(SYS_openat2, AT_FDCWD, path.c_str(), how.data(), sizeof how);
       }}};
  return tries;
}

const std::map<std::string, Try>& processes() {
  static const std::map<std::string, Try> tries{
      {"exec", executed},
      {"exec-at",
       [](const std::string& path) {
         return call(SYS_execveat, AT_FDCWD, path.c_str(), nullptr, nullptr, 0);
       }},
      {"fork", [](const std::string&) { return inChild(call(SYS_clone, SIGCHLD, 0, 0, 0, 0)); }},
      {"clone3", [](const std::string&) { return inChild(call(SYS_clone3, nullptr, 0L)); }},
      {"thread", thread},
      {"ptrace",
       [](const std::string& it) { return call(SYS_ptrace, PTRACE_SEIZE, number(it), 0, 0); }},
      {"read-memory",
       [](const std::string& it) {
         return call(SYS_process_vm_readv, number(it), nullptr, 0L, nullptr, 0L, 0L);
       }},
      {"kill", [](const std::string& it) { return call(SYS_kill, number(it), 0); }},
      {"kill-thread",
       [](const std::string& it) { return call(SYS_tgkill, number(it), number(it), 0); }},
      {"process", [](const std::string& it) { return call(SYS_pidfd_open, number(it), 0); }},
      {"own", [](const std::string& it) { return call(SYS_fcntl, 3, F_SETOWN, number(it)); }},
      {"priority",
       [](const std::string& it) { return call(SYS_setpriority, PRIO_PROCESS, number(it), 19); }},
      {"limit-of",
       [](const std::string& it) {
         rlimit limit{};
         return call(SYS_prlimit64, number(it), RLIMIT_NOFILE, nullptr, &limit);
       }},
      {"outlive", [](const std::string&) { return call(SYS_prctl, PR_SET_PDEATHSIG, 0, 0, 0, 0); }},
      {"dump", [](const std::string&) { return call(SYS_prctl, PR_SET_DUMPABLE, 1, 0, 0, 0); }},
      {"limit", lowered},
      {"memory-limit", raised}};
  return tries;
}

const std::map<std::string, Try>& kernel() {
  static const std::map<std::string, Try> tries{
      {"unix", connected},
      {"tcp-connect", connectedByTCP},
      {"tcp", [](const std::string&) { return call(SYS_socket, AF_INET, SOCK_STREAM, 0); }},
      {"udp", [](const std::string&) { return call(SYS_socket, AF_INET6, SOCK_DGRAM, 0); }},
      {"netlink", [](const std::string&) { return call(SYS_socket, AF_NETLINK, SOCK_RAW, 0); }},
      {"pair",
       [](const std::string&) {
         std::array<int, 2> ends{};
         return call(SYS_socketpair, AF_UNIX, SOCK_STREAM, 0, ends.data());
       }},
      {"memory-file", [](const std::string&) { return call(SYS_memfd_create, "x", 0); }},
      {"executable", [](const std::string&) { return mapped(PROT_READ | PROT_EXEC); }},
      {"make-executable", madeExecutable},
      {"unshare", [](const std::string&) { return call(SYS_unshare, CLONE_NEWUSER); }},
      {"bpf", [](const std::string&) { return call(SYS_bpf, 0, nullptr, 0); }},
      {"ring", [](const std::string&) { return call(SYS_io_uring_setup, 1, nullptr); }},
      {"key", [](const std::string&) { return call(SYS_keyctl, 0, -3, 1, 0, 0); }},
      {"faults", [](const std::string&) { return call(SYS_userfaultfd, 0); }},
      {"control", [](const std::string&) { return call(SYS_ioctl, 3, 0x541B, nullptr); }},
      {"mount",
       [](const std::string&) { return call(SYS_mount, nullptr, "/", nullptr, 0L, nullptr); }},
      {"capabilities", [](const std::string&) { return call(SYS_capset, nullptr, nullptr); }},
      {"descriptors", descriptors}};
  return tries;
}

}  // namespace

std::optional<int> attempt(const std::string& words) {
  const auto space = words.find(' ');
  const auto name = words.substr(0, space);
  const auto argument = space == std::string::npos ? std::string() : words.substr(space + 1);
  for (const auto* tries : {&files(), &processes(), &kernel()}) {
    const auto found = tries->find(name);
    if (found == tries->end()) continue;
    const long result = found->second(argument);
    if (result < 0) return errno;
    return name == "descriptors" ? static_cast<int>(result) : 0;
  }
  return std::nullopt;
}

}  // namespace kvltest
