// Keeps what the trace tells while it lives.
#pragma once

#include <local/platform/Trace.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kvltest {

// A record that outlives its call.
struct KeptTrace {
  kvl::TraceRecord record;  // `path` and `error` stand below
  std::string path;
  std::optional<kvl::Error> error;
};

class TraceCapture {
 public:
  using Kind = kvl::TraceRecord::Kind;

  [[nodiscard]] std::vector<KeptTrace> all() const {
    const std::lock_guard lock(kept_->mutex);
    return kept_->all;
  }
  [[nodiscard]] std::vector<Kind> kinds() const {
    std::vector<Kind> kinds;
    for (const auto& kept : all()) kinds.push_back(kept.record.kind);
    return kinds;
  }
  // All of one kind, in order.
  [[nodiscard]] std::vector<KeptTrace> of(Kind kind) const {
    auto found = all();
    std::erase_if(found, [kind](const KeptTrace& kept) { return kept.record.kind != kind; });
    return found;
  }
  // Waits until one of that kind has been told.
  void waitFor(Kind kind) const {
    std::unique_lock lock(kept_->mutex);
    kept_->changed.wait(lock, [&] {
      return std::ranges::any_of(
          kept_->all, [kind](const KeptTrace& kept) { return kept.record.kind == kind; });
    });
  }
  void clear() const {
    const std::lock_guard lock(kept_->mutex);
    kept_->all.clear();
  }

 private:
  struct Kept {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<KeptTrace> all;
  };

  std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
  kvl::Observation observation_ = kvl::observeTrace([kept = kept_](const kvl::TraceRecord& record) {
    KeptTrace copy{record, std::string(record.path), std::nullopt};
    copy.record.path = {};
    copy.record.error = nullptr;
    if (record.error != nullptr) copy.error = *record.error;
    const std::lock_guard lock(kept->mutex);
    kept->all.push_back(std::move(copy));
    kept->changed.notify_all();
  });
};

}  // namespace kvltest
