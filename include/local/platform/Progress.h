/// @file
/// Progress records that a host can show.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Export.h>
#include <local/platform/Observation.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kvl {

/// The state of a progress record at one moment.
struct ProgressState {
  std::int64_t totalUnitCount = 0;             ///< units to do; 0 or less while unknown
  std::int64_t completedUnitCount = 0;         ///< units done
  std::string localizedDescription;            ///< what is going on, for a person
  std::string localizedAdditionalDescription;  ///< more about it; "(null)" where it is absent

  /// Completed share between 0 and 1; 0 when the total is not positive.
  [[nodiscard]] double fractionCompleted() const noexcept {
    if (totalUnitCount <= 0) return 0;
    return static_cast<double>(completedUnitCount) / static_cast<double>(totalUnitCount);
  }
  /// The same numbers and texts.
  friend bool operator==(const ProgressState&, const ProgressState&) = default;
};

/// A progress record. All four fields change together; any thread may read and update it.
class KVL_EXPORT Progress {
 public:
  /// Receives each new state. Runs on the record's serial queue, in the order of the updates and
  /// with no lock held; never on the updating thread.
  using Handler = std::function<void(const ProgressState&)>;

  /// @param observerQueue a serial queue for the observers; without one the record makes its own.
  explicit Progress(ProgressState state, std::shared_ptr<DispatchQueue> observerQueue = nullptr);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// One consistent state, whoever updates meanwhile.
  [[nodiscard]] ProgressState state() const;
  /// Replaces the state and tells the observers, in the order of the updates.
  void update(ProgressState state);

  /// Of the present state, see `ProgressState`; so are the three below.
  [[nodiscard]] std::int64_t totalUnitCount() const { return state().totalUnitCount; }
  /// Of the present state.
  [[nodiscard]] std::int64_t completedUnitCount() const { return state().completedUnitCount; }
  /// Of the present state.
  [[nodiscard]] std::string localizedDescription() const { return state().localizedDescription; }
  /// Of the present state.
  [[nodiscard]] std::string localizedAdditionalDescription() const {
    return state().localizedAdditionalDescription;
  }

  /// Calls `handler` once with the present state and then with each later one, until the handle is
  /// destroyed. The handle may outlive the record.
  [[nodiscard]] Observation observe(Handler handler) const;

 private:
  struct KVL_INTERNAL Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl
