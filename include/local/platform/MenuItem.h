/// @file
/// The items of menus.
#pragma once

#include <local/platform/AttributedText.h>
#include <local/platform/Export.h>
#include <local/platform/Image.h>
#include <local/platform/MenuAction.h>
#include <local/platform/Observation.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvl {

class Menu;

namespace interface {
struct MenuItemAccess;
}  // namespace interface

/// A badge at the end of a menu item.
struct MenuItemBadge {
  /// The number of updates it announces. A toolkit binding words it.
  std::int64_t updates = 0;

  /// A badge that shows `count` updates.
  [[nodiscard]] static MenuItemBadge updatesWithCount(std::int64_t count) noexcept {
    return {count};
  }
  /// The same number.
  friend bool operator==(const MenuItemBadge&, const MenuItemBadge&) = default;
};

/// An item of a menu, as data: it draws nothing. A toolkit binding shows it and follows its
/// changes.
///
/// Items are shared. Every property is atomic, each on its own; any thread may use one at any time.
/// Nothing moves a change to the main thread: a binding does that where its toolkit needs it.
class KVL_EXPORT MenuItem : public std::enable_shared_from_this<MenuItem> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// What an item is. It never changes.
  enum class Kind : std::uint8_t {
    item,           ///< an ordinary item
    sectionHeader,  ///< a title over the items that follow
    separator,      ///< a line between items
  };

  /// The mark in front of the title.
  enum class State : std::int8_t {
    mixed = -1,  ///< a dash: some of what the item stands for is on
    off = 0,     ///< none
    on = 1,      ///< a check mark
  };

  /// A new ordinary item: enabled, its state off, everything else but the title absent.
  [[nodiscard]] static std::shared_ptr<MenuItem> itemWithTitle(std::string title);
  /// A new section header, which is not enabled.
  [[nodiscard]] static std::shared_ptr<MenuItem> sectionHeaderWithTitle(std::string title);
  /// A new separator without a title, which is not enabled.
  [[nodiscard]] static std::shared_ptr<MenuItem> separatorItem();

  /// Use one of the functions above.
  MenuItem(Private, Kind kind, std::string title);
  /// Lets go of the sub-menu. However deeply menus are nested, this takes little stack.
  ~MenuItem();
  MenuItem(const MenuItem&) = delete;
  MenuItem& operator=(const MenuItem&) = delete;

  /// Set when the item is made.
  [[nodiscard]] Kind kind() const noexcept;

  /// @name Words
  /// @{

  /// Plain text in UTF-8; empty in a new separator.
  [[nodiscard]] std::string title() const;
  /// Observers are told, as by all setters below.
  void setTitle(std::string title);
  /// Shown instead of the title where there is one; the title stays what it is.
  [[nodiscard]] std::optional<AttributedText> attributedTitle() const;
  /// None shows the title again.
  void setAttributedTitle(std::optional<AttributedText> title);
  /// The words that are shown: those of the attributed title, else the title.
  [[nodiscard]] std::string shownTitle() const;
  /// A second line in smaller print.
  [[nodiscard]] std::optional<std::string> subtitle() const;
  /// None takes the second line away.
  void setSubtitle(std::optional<std::string> subtitle);
  /// Shown while the pointer rests on the item; absent for none.
  [[nodiscard]] std::optional<std::string> toolTip() const;
  /// None shows none.
  void setToolTip(std::optional<std::string> toolTip);
  /// The key that chooses the item, together with the toolkit's usual modifier; empty for none.
  [[nodiscard]] std::string keyEquivalent() const;
  /// One character, such as "s"; bindings leave out any other text.
  void setKeyEquivalent(std::string keyEquivalent);
  /// @}

  /// @name Looks
  /// @{

  /// At the end of the item; absent for none.
  [[nodiscard]] std::optional<MenuItemBadge> badge() const;
  /// None takes the badge away.
  void setBadge(std::optional<MenuItemBadge> badge);
  /// In front of the title; null for none.
  [[nodiscard]] std::shared_ptr<Image> image() const;
  /// Null takes the image away; `expectsImage` stays as it is.
  void setImage(std::shared_ptr<Image> image);
  /// Whether an image is expected or was: a binding reserves the space of one, so that nothing
  /// jumps when it comes. False in a new item. Whoever requests an image sets it beforehand; that
  /// the image comes, or none does, changes nothing here.
  [[nodiscard]] bool expectsImage() const;
  /// Set it before the image is asked for.
  void setExpectsImage(bool expects);
  /// The mark in front of the title; `off` in a new item.
  [[nodiscard]] State state() const;
  /// Activating the item does not change it: an action does, where it should.
  void setState(State state);
  /// Whether the user can choose the item.
  [[nodiscard]] bool isEnabled() const;
  /// An item that is not enabled is shown, and cannot be activated.
  void setEnabled(bool enabled);
  /// @}

  /// @name What the item does
  /// @{

  /// What happens when the user chooses the item; it may be none.
  [[nodiscard]] MenuAction action() const;
  /// None leaves an item that does nothing.
  void setAction(MenuAction action);
  /// The object that the action is for, held weakly. An action whose target is gone is not sent;
  /// one that never had a target is.
  [[nodiscard]] std::weak_ptr<void> target() const;
  /// An empty pointer stands for an action without a target.
  void setTarget(std::weak_ptr<void> target);
  /// The object that the item represents; null for none.
  [[nodiscard]] Value representedObject() const;
  /// Kept as it is; the framework does not look at it.
  void setRepresentedObject(Value object);
  /// A name for the host to find the item by; absent for none.
  [[nodiscard]] std::optional<std::string> identifier() const;
  /// Need not be unique: nothing looks for it here.
  void setIdentifier(std::optional<std::string> identifier);
  /// A menu must not contain itself, or it is never destroyed.
  [[nodiscard]] std::shared_ptr<Menu> submenu() const;
  /// Null takes the sub-menu away.
  void setSubmenu(std::shared_ptr<Menu> submenu);
  /// @}

  /// Sends the action, as a binding does when the user chooses the item. The action runs inside
  /// this call, which holds item and target meanwhile.
  ///
  /// @return whether it was sent: the item is enabled, has an action, and its target is not gone.
  bool activate();

  /// Calls `handler` after each property that is set, to an equal value too, until the handle is
  /// destroyed. It runs on the thread that sets, inside that call and with no lock held: on several
  /// threads at once when several set. The handler reads the properties as they are by then. The
  /// handle may outlive the item and does not keep it.
  [[nodiscard]] Observation observe(std::function<void()> handler);

 private:
  friend struct interface::MenuItemAccess;
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl
