// Keeps what the trace tells while it lives.
#pragma once

#include <local/platform/Trace.h>

#include <cstdint>
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

  // The trace is the process's. Given a task's identifier, it keeps what is told of later ones
  // only.
  explicit TraceCapture(std::uint64_t after = 0) : after_(after) {}

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
  void clear() const {
    const std::lock_guard lock(kept_->mutex);
    kept_->all.clear();
  }

 private:
  struct Kept {
    std::mutex mutex;
    std::vector<KeptTrace> all;
  };

  const std::uint64_t after_;
  std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
  kvl::Observation observation_ =
      kvl::observeTrace([kept = kept_, after = after_](const kvl::TraceRecord& record) {
        if (after != 0 && record.task <= after) return;
        KeptTrace copy{record, std::string(record.path), std::nullopt};
        copy.record.path = {};
        copy.record.error = nullptr;
        if (record.error != nullptr) copy.error = *record.error;
        const std::lock_guard lock(kept->mutex);
        kept->all.push_back(std::move(copy));
      });
};

}  // namespace kvltest
