#include "platform/interface/client/DecoderProgram.h"

#include "platform/core/OwnFile.h"
#include "platform/core/PartsFolder.h"

#include <local/platform/Log.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace kvl::interface {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kProgramFile = KVL_PARTS_FOLDER "/kvlocal-image-decoder";
constexpr int kControlSocket = 3;  // in the program
constexpr std::chrono::seconds kLongestStart{10};
constexpr std::chrono::seconds kLongestEnd{2};

std::string textOf(int error) {
  return std::system_category().message(error);
}

class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  // `socket` lies above those that are replaced.
  [[nodiscard]] int keepOnly(int socket) {
    int error = 0;
    for (int standard = 0; standard < kControlSocket && error == 0; ++standard) {
      error = posix_spawn_file_actions_addopen(&actions_, standard, "/dev/null", O_RDWR, 0);
    }
    if (error == 0) error = posix_spawn_file_actions_adddup2(&actions_, socket, kControlSocket);
    if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&actions_, kControlSocket + 1);
    return error;
  }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

// Whatever the host ignores or blocks is as usual in the program, which has a session of its own,
// so that keys of the host's terminal do not reach it.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

// The process, or none and an error number. The environment says nothing of the user, and keeps the
// libraries from looking for modules and caches.
Descriptor spawn(const std::filesystem::path& file, const Descriptor& socket, int& error) {
  static constexpr std::array kEnvironment{"LC_ALL=C.UTF-8",
                                           "HOME=/nonexistent",
                                           "XDG_CACHE_HOME=/nonexistent",
                                           "XDG_CONFIG_HOME=/nonexistent",
                                           "XDG_DATA_HOME=/nonexistent",
                                           "MALLOC_ARENA_MAX=1",
                                           "GIO_USE_VFS=local",
                                           "GIO_MODULE_DIR=/nonexistent"};
  std::array<char*, kEnvironment.size() + 1> environment{};
  std::ranges::transform(kEnvironment, environment.begin(),
                         [](const char* entry) { return const_cast<char*>(entry); });
  const std::array<char*, 2> arguments{const_cast<char*>(file.c_str()), nullptr};
  FileActions actions;
  error = actions.keepOnly(socket.get());
  if (error != 0) return {};
  pid_t process = 0;
  error = posix_spawn(&process, file.c_str(), actions.get(), SpawnAttributes().get(),
                      arguments.data(), environment.data());
  if (error != 0) return {};
  Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  if (handle) return handle;
  error = errno;
  kill(process, SIGKILL);
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
  return {};
}

void reap(const Descriptor& process) {
  if (waitForInput({process.get()}, Clock::now() + kLongestEnd) == 0) {
    syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0);
  }
  siginfo_t end{};
  // A host that waits for any child, or ignores their end, may have been before us.
  while (waitid(P_PIDFD, static_cast<id_t>(process.get()), &end, WEXITED) != 0 && errno == EINTR) {
  }
}

}  // namespace

std::vector<std::filesystem::path> decoderPlaces() {
  return core::placesBesideLibrary(kProgramFile);
}

unsigned waitForInput(std::initializer_list<int> descriptors, Clock::time_point deadline) {
  std::array<pollfd, 4> looked{};
  std::size_t count = 0;
  for (const int descriptor : descriptors) looked.at(count++) = {descriptor, POLLIN, 0};
  while (true) {
    const auto now = Clock::now();
    const auto left = deadline > now ? deadline - now : Clock::duration::zero();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec rest{seconds.count(), (left - seconds).count()};
    const int found = ppoll(looked.data(), count, &rest, nullptr);
    if (found < 0 && errno == EINTR) continue;
    unsigned readable = 0;
    for (std::size_t i = 0; i < count; ++i) readable |= (looked[i].revents != 0 ? 1U : 0U) << i;
    return found > 0 ? readable : 0;
  }
}

std::unique_ptr<DecoderProgram> DecoderProgram::start(
    const std::vector<std::filesystem::path>& places, std::string& problem) {
  std::error_code ignored;
  const auto place = std::ranges::find_if(places, [&ignored](const auto& file) {
    return file.is_absolute() && std::filesystem::exists(file, ignored);
  });
  if (place == places.end()) {
    problem = kvl::format("there is no %@", kProgramFile);
    return nullptr;
  }
  auto ends = ImageChannel::makePair();
  // Where nothing of the program's lies, should the host have closed its own standard descriptors.
  Descriptor theirs(ends ? fcntl(ends->second.get(), F_DUPFD_CLOEXEC, kControlSocket + 1) : -1);
  int error = theirs ? 0 : errno;
  auto process = theirs ? spawn(*place, theirs, error) : Descriptor();
  if (!process) {
    problem = textOf(error);
    return nullptr;
  }
  ends->second = {};
  theirs = {};
  std::unique_ptr<DecoderProgram> program(
      new DecoderProgram(std::move(ends->first), std::move(process)));
  if (!program->hearHello(place->string(), problem)) return nullptr;
  return program;
}

bool DecoderProgram::hearHello(const std::string& file, std::string& problem) {
  static_cast<void>(
      waitForInput({control_->descriptor(), process_.get()}, Clock::now() + kLongestStart));
  ImageChannel::Packet packet;
  if (control_->receive(packet, 0) != ImageChannel::Receipt::kPacket) {
    problem = kvl::format("%@ does not start", file);
    return false;
  }
  const auto hello = readHello(packet.message);
  if (hello) hello_ = *hello;
  if (!hello) problem = kvl::format("%@ is of another version", file);
  return hello.has_value();
}

DecoderProgram::~DecoderProgram() {
  control_.reset();
  reap(process_);
}

std::optional<Descriptor> DecoderProgram::startWorker(std::uint64_t number, std::string& problem) {
  auto ends = ImageChannel::makePair();
  if (!ends) {
    problem = textOf(errno);
    return std::nullopt;
  }
  Bytes message;
  write(Start{number}, message);
  const int theirs = ends->second.get();
  if (!control_->send(message, {&theirs, 1})) {
    problem = "the decoder has ended";
    return std::nullopt;
  }
  return std::move(ends->first);
}

}  // namespace kvl::interface
