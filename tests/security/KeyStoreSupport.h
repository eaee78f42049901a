// What the tests of the key stores share.
#pragma once

#include "platform/security/KeyStore.h"
#include "platform/security/ProcessMarks.h"

#include <local/platform/Log.h>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <mutex>

namespace kvltest {

// Long enough for a loaded machine: tests that need a short one say so.
inline kvl::security::Deadline soon(std::chrono::milliseconds time = std::chrono::seconds(30)) {
  return std::chrono::steady_clock::now() + time;
}

// The kernel keyring outlives the process and is shared with tests that run at the same time.
inline std::string uniqueTag() {
  static std::atomic<int> count = 0;
  return "korvale.test." + std::to_string(getpid()) + "." + std::to_string(++count);
}

inline kvl::security::StoredKey storedKey(const std::string& tag,
                                          kvl::Key::Class keyClass = kvl::Key::Class::privateKey,
                                          std::uint8_t filling = 1) {
  return {tag,         keyClass,        "a label",
          "a comment", "a description", kvl::security::WipedBytes(1200, filling)};
}

// What a child process, which has ended, has to say.
template <class Speech>
std::string fromEndedProcess(bool inNamespaceOfItsOwn, Speech speech) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    // Only the child's own children are in the new namespace.
    if (inNamespaceOfItsOwn && (unshare(CLONE_NEWPID) != 0 || fork() != 0)) {
      close(ends[1]);
      wait(nullptr);
      _exit(0);
    }
    const std::string words = speech();
    (void)!write(ends[1], words.data(), words.size());
    _exit(0);
  }
  close(ends[1]);
  std::array<char, 200> text{};
  const ssize_t size = read(ends[0], text.data(), text.size());
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

// The mark of a child process, which has ended.
inline std::string markOfEndedProcess(bool inNamespaceOfItsOwn = false) {
  return fromEndedProcess(inNamespaceOfItsOwn,
                          [] { return kvl::security::ProcessMarks().own().value_or("none"); });
}

// Collects the log's lines.
class LogCapture {
 public:
  LogCapture()
      : before_(kvl::setLogSink([this](std::string_view line) {
          const std::lock_guard lock(mutex_);
          lines_.emplace_back(line);
        })) {}
  ~LogCapture() { kvl::setLogSink(before_); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  kvl::LogSink before_;
};

// A store that does as it is told; without words it is not available.
class ScriptedStore : public kvl::security::KeyStore {
 public:
  explicit ScriptedStore(std::string name) : name_(std::move(name)) {}

  std::function<kvl::Status(const kvl::security::StoredKey&, kvl::security::Deadline)> onAdd;
  std::function<kvl::Status(std::vector<kvl::security::StoredKey>&)> onFind;
  std::function<kvl::Status(std::string_view, std::optional<kvl::Key::Class>)> onRemove;
  std::function<void()> onExpectKey;
  int calls = 0;

  std::string_view name() const noexcept override { return name_; }
  void expectKey() override {
    if (onExpectKey) onExpectKey();
  }
  kvl::Status add(const kvl::security::StoredKey& key, kvl::security::Deadline deadline) override {
    ++calls;
    return onAdd ? onAdd(key, deadline) : static_cast<kvl::Status>(kvl::errSecNotAvailable);
  }
  kvl::Status find(std::optional<std::string_view>, std::vector<kvl::security::StoredKey>& keys,
                   kvl::security::Deadline) override {
    ++calls;
    return onFind ? onFind(keys) : static_cast<kvl::Status>(kvl::errSecNotAvailable);
  }
  kvl::Status remove(std::string_view tag, std::optional<kvl::Key::Class> keyClass,
                     kvl::security::Deadline) override {
    ++calls;
    return onRemove ? onRemove(tag, keyClass) : static_cast<kvl::Status>(kvl::errSecNotAvailable);
  }

 private:
  const std::string name_;
};

}  // namespace kvltest
