/// @file
/// What a menu item does when the user chooses it.
#pragma once

// Before <concepts>, see there.
#include <local/platform/Export.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace kvl {

class MenuItem;

/// An action of menu items, or none. Copies share one handler and are equal; any thread may use
/// one.
class MenuAction {
 public:
  /// Receives the item that was chosen. Called on the thread that activates the item, with no lock
  /// held.
  using Handler = std::function<void(const std::shared_ptr<MenuItem>& item)>;

  /// No action.
  MenuAction() noexcept = default;
  /// No action.
  MenuAction(std::nullptr_t) noexcept {}

  /// An action that calls `handler`. Each is an action of its own: to compare, keep one.
  template <class Callable>
    requires(!std::same_as<std::remove_cvref_t<Callable>, MenuAction>) &&
            std::constructible_from<Handler, Callable>
  MenuAction(Callable&& handler) {
    if (Handler made(std::forward<Callable>(handler)); made)
      handler_ = std::make_shared<const Handler>(std::move(made));
  }

  /// Whether there is an action.
  explicit operator bool() const noexcept { return handler_ != nullptr; }

  /// Calls the handler; does nothing without one.
  void operator()(const std::shared_ptr<MenuItem>& item) const {
    if (handler_) (*handler_)(item);
  }

  /// Copies of one action are equal, and so are all without one.
  friend bool operator==(const MenuAction&, const MenuAction&) noexcept = default;

 private:
  std::shared_ptr<const Handler> handler_;
};

}  // namespace kvl
