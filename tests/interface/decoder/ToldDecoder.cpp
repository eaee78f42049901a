// The image decoder's program, for which an image may be an order: "TELL open /etc/passwd" makes it
// try that and answer the error's number as the picture's width. Other images are decoded as usual.
//
//   --trap              reports the number of each denied system call to the standard error
//   --landlock VERSION  behaves as with a kernel of that version
//   --without WHAT      behaves as on a system that has no "landlock", "filters", "limits", "forks"
//                       or "pidfds"
//   --host, --family    is a host with a decoder at work, and its child has all that it has open
#include "platform/interface/decoder/Program.h"
#include "tests/interface/decoder/Attempts.h"
#include "tests/interface/decoder/DecoderProcess.h"

#include <linux/sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using kvl::Size;
using kvl::interface::Span;
using kvl::pictures::Picture;
using kvl::pictures::Target;

bool lacksMemory = false;

std::size_t numberIn(std::string_view text) {
  std::size_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Draws itself with the last of its bytes.
class ToldPicture final : public Picture {
 public:
  ToldPicture(Span bytes, Size size, std::size_t cost, bool isDrawn)
      : bytes_(bytes), size_(size), cost_(cost), isDrawn_(isDrawn) {}

  [[nodiscard]] Size size() const override { return size_; }
  [[nodiscard]] bool draw(const Target& target) override {
    std::ranges::fill(target.pixels, bytes_.back());
    return isDrawn_;
  }
  [[nodiscard]] std::size_t cost() const override { return cost_; }

 private:
  const Span bytes_;
  const Size size_;
  const std::size_t cost_;
  const bool isDrawn_;
};

std::unique_ptr<Picture> picture(Span bytes, Size size = {1, 1}, std::size_t cost = 0,
                                 bool isDrawn = true) {
  return std::make_unique<ToldPicture>(bytes, size, cost, isDrawn);
}

[[noreturn]] void abortWith(int error) {
  errno = error;
  std::abort();
}

std::unique_ptr<Picture> take(std::size_t mebibytes, Span bytes) {
  const std::vector<char> memory(mebibytes << 20);
  const volatile char* const last = &memory.back();
  return *last == 0 ? picture(bytes) : nullptr;
}

void spin() {
  volatile bool forEver = true;
  while (forEver) {
  }
}

std::unique_ptr<Picture> obey(std::string_view words, Span bytes) {
  const auto order = words.substr(0, words.find(' '));
  const auto number = numberIn(words.substr(std::min(words.size(), order.size() + 1)));
  if (order == "spin") spin();
  if (order == "abort") abortWith(0);
  if (order == "abort-for-memory") abortWith(ENOMEM);
  if (order == "throw") throw std::runtime_error("told");
  if (order == "throw-for-memory") throw std::bad_alloc();
  if (order == "take") return take(number, bytes);
  if (order == "wide") return picture(bytes, {static_cast<double>(number), 1});
  if (order == "costly") return picture(bytes, {1, 1}, number << 20);
  if (order == "undrawn") return picture(bytes, {1, 1}, 0, false);
  if (order == "none") return nullptr;
  if (order == "none-after-error") return errno = static_cast<int>(number), nullptr;
  if (order == "none-for-memory") return lacksMemory = true, nullptr;
  const auto result = kvltest::attempt(std::string(words));
  return result ? picture(bytes, {1.0 + *result, 1}) : nullptr;
}

std::unique_ptr<Picture> decode(kvl::interface::ImageFormat format, Span bytes) {
  constexpr std::string_view kOrder = "TELL ";
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  lacksMemory = false;
  if (!text.starts_with(kOrder)) return kvl::pictures::decode(format, bytes);
  return obey(text.substr(kOrder.size()), bytes);
}

void say(std::string_view text) {
  [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
}

// The call fails after that as it does without a trap.
void reportDenied(int /*signal*/, siginfo_t* info, void* context) {
  std::array<char, 16> text{};
  auto* const end = std::to_chars(text.data(), text.data() + 15, info->si_syscall).ptr;
  *end = '\n';
  say({text.data(), static_cast<std::size_t>(end - text.data()) + 1});
  auto& machine = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
  machine.gregs[REG_RAX] = -EPERM;
#elif defined(__aarch64__)
  machine.regs[0] = static_cast<unsigned long long>(-EPERM);
#endif
}

void trap() {
  struct sigaction action{};
  action.sa_sigaction = reportDenied;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSYS, &action, nullptr);
}

void leaveOut(std::string_view what) {
  const auto rules = seccomp_init(SCMP_ACT_ALLOW);
  const auto fails = [rules](int error, int number,
                             std::initializer_list<scmp_arg_cmp> arguments = {}) {
    seccomp_rule_add_array(rules, SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number,
                           static_cast<unsigned>(arguments.size()), arguments.begin());
  };
  if (what == "landlock") fails(ENOSYS, SCMP_SYS(landlock_create_ruleset));
  if (what == "pidfds") fails(ENOSYS, SCMP_SYS(pidfd_open));
  if (what == "forks") fails(EAGAIN, SCMP_SYS(clone), {{0, SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0}});
  if (what == "limits") fails(EPERM, SCMP_SYS(prlimit64), {{1, SCMP_CMP_EQ, RLIMIT_NOFILE, 0}});
  if (what == "filters") {
    fails(ENOSYS, SCMP_SYS(seccomp));
    fails(EINVAL, SCMP_SYS(prctl), {{0, SCMP_CMP_EQ, PR_SET_SECCOMP, 0}});
  }
  seccomp_load(rules);
  seccomp_release(rules);
}

// Its numbers, as text, when a worker of it is busy.
[[noreturn]] void beHost(const char* program, bool hasChild) {
  kvltest::DecoderProcess decoder(program);
  const auto hello = decoder.hello();
  auto worker = decoder.start();
  if (!hello || !worker || !worker->send(kvltest::openRequest(1, "TELL spin"))) _exit(1);
  const pid_t child = hasChild ? fork() : -1;
  if (child != 0) {
    std::printf("%d %d %d\n", decoder.process(), worker->process(), child);
    std::fflush(stdout);
  }
  while (true) pause();
}

}  // namespace

int main(int count, char** arguments) {
  kvl::decoder::Program program;
  program.decode = decode;
  program.lacksMemory = []() noexcept { return lacksMemory || kvl::pictures::lacksMemory(); };
  program.warmText = [] {
    say("text\n");
    kvl::pictures::warmText();
  };
  for (int i = 1; i < count; ++i) {
    const std::string_view option = arguments[i];
    const char* const value = i + 1 < count ? arguments[i + 1] : "";
    if (option == "--host" || option == "--family") beHost(arguments[0], option == "--family");
    if (option == "--trap") program.denied = kvl::decoder::DeniedCall::kTrap, trap();
    if (option == "--landlock") program.landlockVersion = static_cast<unsigned>(numberIn(value));
    if (option == "--without") leaveOut(value);
  }
  // Asked for anew, as the system may lack it by now.
  program.landlockVersion = std::min(program.landlockVersion, kvl::decoder::landlockVersion());
  _exit(kvl::decoder::run(program));
}
