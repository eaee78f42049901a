// A source whose every call the test sees.
#pragma once

#include <local/platform/BodySource.h>
#include <local/platform/Mutex.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace kvl::testing {

// Opened once, waited for by others.
class Door {
 public:
  void open() {
    const MutexLock lock(mutex_);
    isOpen_ = true;
    changed_.notifyAll();
  }
  void pass() {
    MutexLock lock(mutex_);
    while (!isOpen_) changed_.wait(lock);
  }

 private:
  Mutex mutex_;
  Condition changed_;
  bool isOpen_ KVL_GUARDED_BY(mutex_) = false;
};

// Gives a text, in steps as the test says.
class TextSource final : public BodySource {
 public:
  explicit TextSource(std::string content) : text(std::move(content)), said(text.size()) {}

  std::optional<std::uint64_t> length() const override { return said; }
  std::size_t read(std::span<std::uint8_t> room, std::optional<Error>* error) override {
    EXPECT_FALSE(room.empty());
    EXPECT_EQ(++callers, 1);
    ++reads;
    if (onRead) onRead(given);
    if (failsAt && given >= *failsAt) {
      storeError(error, Error("Own", 5));
      --callers;
      return 0;
    }
    const std::size_t count = std::min({room.size(), step, text.size() - given});
    std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(given), count, room.begin());
    given += count;
    --callers;
    return count;
  }
  bool rewind() override {
    EXPECT_EQ(callers, 0);
    ++rewinds;
    if (onRewind) onRewind();
    given = 0;
    return canRewind;
  }

  // Set before it is used.
  const std::string text;
  std::optional<std::uint64_t> said;
  std::size_t step = std::size_t{1} << 20;
  std::optional<std::size_t> failsAt;
  bool canRewind = true;
  std::function<void(std::size_t given)> onRead;
  std::function<void()> onRewind;

  std::atomic<std::size_t> given = 0;
  std::atomic<int> reads = 0;
  std::atomic<int> rewinds = 0;
  std::atomic<int> callers = 0;
};

inline std::string mixedText(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * i + i / 251) % 26);
  return text;
}

}  // namespace kvl::testing
