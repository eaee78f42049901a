#include "platform/serialisation/JSONTokens.h"

#include "platform/core/LargeMemory.h"
#include "platform/core/ProcessExit.h"

#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <bit>

namespace kvl::serialisation {
namespace {

// What a workspace may hold while nobody reads.
constexpr std::size_t kKeptSize = 4 << 20;
constexpr std::size_t kSmallestCapacity = 4096;
// simdjson makes it, perhaps with another standard library, for which a pointer alone is the same.
static_assert(sizeof(std::unique_ptr<simdjson::internal::dom_parser_implementation>) ==
              sizeof(void*));

std::atomic<JSONWorkspace*> kept;

// A static object, so null while the process exits.
const simdjson::implementation* implementation() {
  static const auto* const chosen = [] {
    const auto* const active = simdjson::get_active_implementation().operator->();
    static_cast<void>(active->name());  // chooses it
    core::standBeforeStatics();
    return simdjson::get_active_implementation().operator->();
  }();
  return core::isExiting() ? nullptr : chosen;
}

}  // namespace

JSONWorkspace::JSONWorkspace() = default;
JSONWorkspace::~JSONWorkspace() = default;

std::unique_ptr<JSONWorkspace> JSONWorkspace::take() {
  if (auto* workspace = kept.exchange(nullptr, std::memory_order_acquire))
    return std::unique_ptr<JSONWorkspace>(workspace);
  return std::make_unique<JSONWorkspace>();
}

void JSONWorkspace::leave(std::unique_ptr<JSONWorkspace> workspace) noexcept {
  if (workspace->size() > kKeptSize) return;
  const std::unique_ptr<JSONWorkspace> replaced(
      kept.exchange(workspace.release(), std::memory_order_acq_rel));
}

std::size_t JSONWorkspace::size() const noexcept {
  return capacity_ * sizeof(std::uint32_t) + elements.memory() + entries.memory();
}

bool JSONWorkspace::reserve(std::size_t textSize) {
  if (index_ && textSize <= capacity_) return true;
  const bool isKept = textSize * sizeof(std::uint32_t) <= kKeptSize;
  const std::size_t capacity =
      isKept ? std::max(kSmallestCapacity, std::bit_ceil(textSize)) : textSize;
  const auto* const chosen = implementation();
  capacity_ = 0;
  if (chosen == nullptr ||
      chosen->create_dom_parser_implementation(capacity, 1, index_) != simdjson::SUCCESS)
    return false;
  core::preferLargePages(index_->structural_indexes.get(), capacity * sizeof(std::uint32_t));
  capacity_ = capacity;
  return true;
}

std::span<const std::uint32_t> JSONWorkspace::tokensOf(std::string_view text,
                                                       std::string& problem) {
  if (!reserve(text.size())) {
    problem = core::isExiting() ? "the process is exiting" : "out of memory";
    return {};
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto result = index_->stage1(bytes, text.size(), simdjson::stage1_mode::regular);
  if (result == simdjson::SUCCESS)
    return {index_->structural_indexes.get(), index_->n_structural_indexes};
  problem = simdjson::error_message(result);
  return {};
}

}  // namespace kvl::serialisation
