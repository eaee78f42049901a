// A session bus of the test's own, with gnome-keyring and activatable services on it when asked
// for. Every process is ended by its id, and dies with the test program at the latest.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

// `NAME=value` texts.
using Environment = std::vector<std::string>;

// This process's environment with `changes` on top; a change without `=` removes the variable.
Environment environmentWith(const Environment& changes);

// A program that runs beside the test. The thread that starts it must outlive it: the program is
// killed when that thread ends.
class ChildProcess {
 public:
  ChildProcess() = default;
  // `arguments[0]` is looked up in PATH. Standard output goes to `standardOutput` when that is a
  // descriptor, standard error and otherwise both to the file `log`.
  // Throws std::runtime_error when the program cannot be started.
  ChildProcess(const std::vector<std::string>& arguments, const Environment& environment,
               const std::filesystem::path& log, int standardOutput = -1);
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;

  pid_t id() const { return id_; }
  bool running() const { return id_ > 0; }
  // Sends a signal; nothing happens when the program has been waited for.
  void signal(int number) const;
  // Kills the program and waits until it is gone.
  void kill();
  // Waits until the program ends by itself; its exit status as waitpid(2) gives it.
  int wait();

 private:
  pid_t id_ = 0;
};

// A directory of its own under the system's temporary directory, removed at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

class PrivateBus {
 public:
  enum class Users { one, all };
  // Starts the bus and returns when it listens. Services that it activates get this process's
  // environment with `changes` on top. With `Users::all` other users may connect, too, and enter
  // `directory()`. Throws std::runtime_error when it does not start.
  explicit PrivateBus(const Environment& changes = {}, Users users = Users::one);
  ~PrivateBus();

  const std::string& address() const { return address_; }
  // Where the bus, the keyring and whoever else likes keep files: sockets, logs.
  const std::filesystem::path& directory() const { return directory_.path(); }

  // Makes `name` activatable from now on: the bus runs `command` (an absolute path and arguments,
  // quoted as in a shell) when somebody calls the name.
  void addService(std::string_view name, std::string_view command) const;
  void removeService(std::string_view name) const;

  // Blocks until `name` has an owner; throws std::runtime_error when it takes too long.
  void waitForName(std::string_view name) const;

  // Runs gnome-keyring with only its Secret Service, with homes inside `directory()`, and returns
  // when it owns its name.
  void startKeyring();
  // Freezes and thaws it: a provider that hangs.
  void freezeKeyring() const;
  void thawKeyring() const;
  void killKeyring() { keyring_.kill(); }

  // Kills the bus: its clients see their connections close.
  void stop();
  // A new bus at the same address, without anybody on it.
  void restart();

 private:
  void writeConfiguration(Users users) const;
  void start();

  const Environment changes_;

  TemporaryDirectory directory_;
  ChildProcess daemon_;
  ChildProcess keyring_;
  std::string address_;
};

// Sets DBUS_SESSION_BUS_ADDRESS for this process as long as it lives, an empty address for none at
// all. Not while other threads read the environment.
class SessionBusVariable {
 public:
  explicit SessionBusVariable(const std::string& address);
  ~SessionBusVariable();
  SessionBusVariable(const SessionBusVariable&) = delete;
  SessionBusVariable& operator=(const SessionBusVariable&) = delete;

 private:
  bool wasSet_ = false;
  std::string before_;
};

}  // namespace kvltest
