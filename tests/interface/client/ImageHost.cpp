// A host that has the decoder's program, one worker that does nothing and one in mid-image, says
// their numbers, and ends in one of several ways.
//   kvl_image_host PROGRAM HOW
#include "platform/interface/client/ImageDecoding.h"
#include "tests/interface/client/FalseDecoding.h"

#include <local/platform/Log.h>

#include <seccomp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>

namespace {

using kvltest::sourceOf;

constexpr uid_t kNobody = 65534;

// Where nothing may be started: for root, no number of processes is too many.
int withoutProcesses(const char* program) {
  const rlimit none{0, 0};
  if (setresgid(kNobody, kNobody, kNobody) != 0) return EXIT_FAILURE;
  if (setrlimit(RLIMIT_NPROC, &none) != 0) return EXIT_FAILURE;
  if (setresuid(kNobody, kNobody, kNobody) != 0) return EXIT_FAILURE;
  auto options = kvltest::falseOptions(program);
  options.retry = std::chrono::milliseconds(0);
  auto& decoding = *new kvltest::ImageDecoding(options);
  for (int i = 0; i < 3; ++i) {
    if (decoding.open(sourceOf("honest"))) return EXIT_FAILURE;
  }
  std::cout << "ended" << std::endl;
  _exit(EXIT_SUCCESS);
}

// Where a child cannot be seen through a descriptor, as in some sandboxes.
int withoutHandles(const char* program) {
  const scmp_filter_ctx rules = seccomp_init(SCMP_ACT_ALLOW);
  if (seccomp_rule_add(rules, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(pidfd_open), 0) != 0) {
    return EXIT_FAILURE;
  }
  if (seccomp_load(rules) != 0) return EXIT_FAILURE;
  seccomp_release(rules);
  auto options = kvltest::falseOptions(program);
  options.retry = std::chrono::milliseconds(0);
  auto& decoding = *new kvltest::ImageDecoding(options);
  for (int i = 0; i < 3; ++i) {
    if (decoding.open(sourceOf("honest"))) return EXIT_FAILURE;
  }
  std::cout << kvltest::childrenOf(getpid()).size() << " children" << std::endl;
  _exit(EXIT_SUCCESS);
}

// Twice, and each time it lacks the same.
int withLacks(const char* program) {
  for (int i = 0; i < 2; ++i) {
    kvltest::ImageDecoding decoding(kvltest::falseOptions(program));
    if (!decoding.open(sourceOf("honest"))) return EXIT_FAILURE;
  }
  std::cout << "ended" << std::endl;
  return EXIT_SUCCESS;
}

struct Images {
  explicit Images(const char* program) : decoding(kvltest::falseOptions(program)) {}
  kvltest::ImageDecoding decoding;
  kvltest::SourcePtr honest = sourceOf("honest");
  kvltest::SourcePtr endless = sourceOf("sleep");
};

// What static objects do when their turn comes.
struct Late {
  ~Late() {
    const bool isOpen = images->decoding.open(images->honest).has_value();
    images->decoding.open(images->honest, [](std::optional<kvl::Size>) { std::abort(); });
    images->decoding.prepare();
    images->honest->letGo();
    std::cout << (isOpen ? "opened" : "none") << std::endl;
  }
  Images* images = nullptr;
};

[[noreturn]] void end(std::string_view how) {
  if (how == "kill") raise(SIGKILL);
  // A child that lives on has copies of all descriptors.
  const pid_t child = how == "fork" ? fork() : -1;
  if (child == 0) {
    close(STDOUT_FILENO);
    sleep(600);
    _exit(EXIT_SUCCESS);
  }
  if (child > 0) std::cout << child << std::endl;
  if (how != "exit") _exit(EXIT_SUCCESS);
  std::exit(EXIT_SUCCESS);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  const std::string_view how = arguments[2];
  kvl::setLogSink([](std::string_view line) { std::cout << line << std::endl; });
  if (how == "without-processes") return withoutProcesses(arguments[1]);
  if (how == "without-handles") return withoutHandles(arguments[1]);
  if (how == "lacks") return withLacks(arguments[1]);
  auto& images = *new Images(arguments[1]);
  static Late late;
  late.images = &images;
  images.decoding.open(images.endless, [](std::optional<kvl::Size>) { std::abort(); });
  // One that waits while the process ends.
  std::thread([&images] { static_cast<void>(images.decoding.open(images.endless)); }).detach();
  while (kvltest::workers().size() < 2) std::this_thread::yield();
  std::cout << kvltest::childrenOf(getpid()).front();
  for (const pid_t worker : kvltest::workers()) std::cout << ' ' << worker;
  std::cout << std::endl;
  end(how);
}
