#include "platform/interface/MenuDisposal.h"

#include <utility>
#include <vector>

namespace kvl::interface {
namespace {

using Menus = std::vector<std::shared_ptr<Menu>>;

// What this thread is about to let go of, while it does.
thread_local Menus* presentDisposal = nullptr;

}  // namespace

void dispose(std::shared_ptr<Menu> menu) {
  if (!menu) return;
  if (presentDisposal != nullptr) {
    presentDisposal->push_back(std::move(menu));
    return;
  }
  Menus menus;
  presentDisposal = &menus;
  menus.push_back(std::move(menu));
  while (!menus.empty()) {
    const auto next = std::move(menus.back());
    menus.pop_back();
  }
  presentDisposal = nullptr;
}

}  // namespace kvl::interface
