#include "tests/support/PrivateBus.h"

#include "tests/support/Pipe.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace kvltest {
namespace {

constexpr auto kAddressVariable = "DBUS_SESSION_BUS_ADDRESS";
constexpr auto kSecretsName = "org.freedesktop.secrets";
// For `gdbus wait`, in seconds: long enough for a loaded machine under a sanitizer.
constexpr auto kNameTimeout = "30";

[[noreturn]] void fail(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

std::string nameOf(const std::string& variable) {
  return variable.substr(0, variable.find('='));
}

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

// Standard streams of a child, in the form that posix_spawn takes.
class Streams {
 public:
  Streams(const std::filesystem::path& log, int standardOutput) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(
        &actions_, standardOutput >= 0 ? standardOutput : STDERR_FILENO, STDOUT_FILENO);
  }
  ~Streams() { posix_spawn_file_actions_destroy(&actions_); }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::ofstream(path) << text << std::flush;
}

}  // namespace

Environment environmentWith(const Environment& changes) {
  Environment result;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    bool changed = false;
    for (const std::string& change : changes) changed |= nameOf(change) == nameOf(*variable);
    if (!changed) result.emplace_back(*variable);
  }
  for (const std::string& change : changes)
    if (change.find('=') != std::string::npos) result.push_back(change);
  return result;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const Environment& environment, const std::filesystem::path& log,
                           int standardOutput) {
  // setpriv asks the kernel to kill the program with this thread and then becomes the program.
  std::vector<std::string> command{"setpriv", "--pdeathsig", "KILL", "--"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const Streams streams(log, standardOutput);
  const int error = posix_spawnp(&id_, "setpriv", streams.get(), nullptr, pointers(command).data(),
                                 pointers(environment).data());
  if (error != 0) fail("cannot start " + arguments.front(), error);
}

ChildProcess::~ChildProcess() {
  kill();
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : id_(std::exchange(other.id_, 0)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  kill();
  id_ = std::exchange(other.id_, 0);
  return *this;
}

void ChildProcess::signal(int number) const {
  if (running()) ::kill(id_, number);
}

void ChildProcess::kill() {
  signal(SIGKILL);
  wait();
}

int ChildProcess::wait() {
  int status = 0;
  if (!running()) return status;
  while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  id_ = 0;
  return status;
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = std::filesystem::temp_directory_path() / "kvltest-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) fail("mkdtemp", errno);
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

PrivateBus::PrivateBus(const Environment& changes, Users users) : changes_(changes) {
  using std::filesystem::perms;
  std::filesystem::create_directory(directory() / "services");
  if (users == Users::all)
    std::filesystem::permissions(directory(), perms::owner_all | perms::others_exec);
  writeConfiguration(users);
  start();
}

void PrivateBus::start() {
  Pipe addressPipe;
  daemon_ =
      ChildProcess({"dbus-daemon", "--nofork", "--nopidfile", "--nosyslog", "--print-address=1",
                    "--config-file=" + (directory() / "bus.conf").string()},
                   environmentWith(changes_), directory() / "bus.log", addressPipe.writeEnd());
  address_ = addressPipe.readLine();
  // As in the address of a user's session: the identity of this one bus is no part of it.
  address_ = address_.substr(0, address_.find(",guid="));
  if (address_.empty()) throw std::runtime_error("dbus-daemon did not start");
}

PrivateBus::~PrivateBus() {
  stop();
}

void PrivateBus::writeConfiguration(Users users) const {
  writeFile(directory() / "bus.conf",
            R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" +
                (directory() / "bus").string() +
                R"(</listen>
  <auth>EXTERNAL</auth>
  <servicedir>)" +
                (directory() / "services").string() +
                R"(</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
)" + (users == Users::all ? "<allow user='*'/>" : "") +
                R"(
  </policy>
</busconfig>
)");
}

void PrivateBus::addService(std::string_view name, std::string_view command) const {
  const auto file = directory() / "services" / (std::string(name) + ".service");
  writeFile(file,
            "[D-BUS Service]\nName=" + std::string(name) + "\nExec=" + std::string(command) + "\n");
}

void PrivateBus::removeService(std::string_view name) const {
  std::filesystem::remove(directory() / "services" / (std::string(name) + ".service"));
}

void PrivateBus::waitForName(std::string_view name) const {
  ChildProcess waiter({"gdbus", "wait", "--session", "--timeout", kNameTimeout, std::string(name)},
                      environmentWith({std::string(kAddressVariable) + "=" + address_}),
                      directory() / "wait.log");
  if (waiter.wait() != 0) throw std::runtime_error("nobody came to own " + std::string(name));
}

void PrivateBus::startKeyring() {
  const auto home = directory() / "home";
  const auto runtime = directory() / "runtime";
  std::filesystem::create_directories(home);
  std::filesystem::create_directories(runtime);
  std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  keyring_ = ChildProcess(
      {"gnome-keyring-daemon", "--foreground", "--components=secrets",
       "--control-directory=" + (runtime / "keyring").string()},
      environmentWith({std::string(kAddressVariable) + "=" + address_, "HOME=" + home.string(),
                       "XDG_RUNTIME_DIR=" + runtime.string(), "XDG_DATA_HOME=" + home.string(),
                       "XDG_CONFIG_HOME=" + home.string(), "XDG_CACHE_HOME=" + home.string(),
                       "DISPLAY"}),
      directory() / "keyring.log");
  waitForName(kSecretsName);
}

void PrivateBus::freezeKeyring() const {
  keyring_.signal(SIGSTOP);
}

void PrivateBus::thawKeyring() const {
  keyring_.signal(SIGCONT);
}

void PrivateBus::stop() {
  keyring_.kill();
  daemon_.kill();
}

void PrivateBus::restart() {
  stop();
  std::filesystem::remove(directory() / "bus");
  start();
}

SessionBusVariable::SessionBusVariable(const std::string& address) {
  if (const char* before = std::getenv(kAddressVariable)) {
    wasSet_ = true;
    before_ = before;
  }
  if (address.empty()) {
    unsetenv(kAddressVariable);
  } else {
    setenv(kAddressVariable, address.c_str(), 1);
  }
}

SessionBusVariable::~SessionBusVariable() {
  if (wasSet_) {
    setenv(kAddressVariable, before_.c_str(), 1);
  } else {
    unsetenv(kAddressVariable);
  }
}

}  // namespace kvltest
