/// @file
/// Menus, built from their descriptions in documents.
#pragma once

#include <local/KVLEncoding.h>
#include <local/KVLEncodingRoot.h>
#include <local/platform/Export.h>
#include <local/platform/Geometry.h>
#include <local/platform/Image.h>
#include <local/platform/Menu.h>
#include <local/platform/MenuAction.h>
#include <local/platform/MenuItem.h>
#include <local/platform/SegmentedControl.h>
#include <local/platform/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

/// Where the icons of menu items come from. The framework has none: the host's may fetch, cache and
/// draw as it likes.
class KVL_EXPORT KVLEncodingImageSource {
 public:
  /// Receives the image, or null when there is none. To be called once; it shares the item that
  /// waits for the image and lets go of it when it is destroyed. It may be called inside the
  /// request, later, or never, and on any thread: the image is set on that one, so that a source
  /// for a toolkit whose menus belong to the main thread should call it there.
  using Completion = std::function<void(std::shared_ptr<kvl::Image> image)>;

  virtual ~KVLEncodingImageSource();
  KVLEncodingImageSource(const KVLEncodingImageSource&) = delete;
  KVLEncodingImageSource& operator=(const KVLEncodingImageSource&) = delete;

  /// `imageWithRelativePath:size:completionHandler:` Asks for an image. Called on the thread that
  /// builds the menu, with no lock held.
  ///
  /// @param relativePath where the service has the image; not empty
  /// @param size in points
  virtual void imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, kvl::Size size,
                                     Completion completionHandler) = 0;

 protected:
  KVLEncodingImageSource() = default;
};

/// **Menu item descriptions.** Dictionaries with these keys, all optional, read with the accessors
/// of `KVLEncoding.h`: a value of the wrong type is logged there and counts as absent. A malformed
/// description never stops a menu from being built.
///
/// - "type", a string. "title": a section header; "item": an item; "divider": a separator, nothing
///   else; anything else: no item, and "unknown menu item type: %@" in the log.
/// - "text", a string: the title, as it stands.
/// - "subtext", a string. If not empty, a second line: the text as `stringWithLocales` renders it
///   with the value under "locale" (`KVLEncodingKeyLocale`).
/// - "shortcut", a string. If not empty, the key equivalent, as it stands.
/// - "updates", an integer. If 1 or more, a badge of that many updates, on system version 14.0 and
///   later.
/// - "tooltip", a string: the tool tip.
/// - "icon", a string. If not empty, the relative path of the image, which comes later.
/// - "state", a string: "on", "off" or "mixed"; anything else leaves the state off.
/// - "form", a dictionary. It enables the item, which gets the action and its target, the form as
///   represented object and the form's "id" as identifier. Without an "id" that is not empty there
///   is no identifier, and "menu item with action missing id: %@" in the log. Without a form the
///   item is disabled.
/// - "subitems", an array of descriptions. If not empty, it enables the item, which gets a sub-menu
///   of them.
///
/// Before system version 14.0 a section header is an item with an attributed title in small print.
/// Before 14.4 the second line is part of an attributed title: the text in the menu font, then a
/// line feed and the second line in small print and the secondary label colour.
///
/// Sub-menus may be nested to any depth: building them takes no stack.
///
/// **Threads.** `menuIconSize` is for any thread. The others change what the user sees and are
/// meant for the main thread, though the objects themselves allow any.
namespace KVLEncoding {

/// An array or none, as a parameter. Of a value it is the array in it; the null value and every
/// value of another kind are none.
class ArrayOrNone {
 public:
  /// None.
  ArrayOrNone(std::nullopt_t) noexcept {}
  /// `array`, whose elements are shared.
  ArrayOrNone(const kvl::Array& array) noexcept : array_(array) {}
  /// What the optional holds, or none.
  ArrayOrNone(const std::optional<kvl::Array>& array) noexcept : array_(array) {}
  /// The array in `value`, or none.
  ArrayOrNone(const kvl::Value& value) noexcept : array_(value.array()) {}

  /// Whether there is one.
  explicit operator bool() const noexcept { return array_.has_value(); }
  /// The array. @pre there is one
  [[nodiscard]] const kvl::Array& operator*() const noexcept { return *array_; }

 private:
  std::optional<kvl::Array> array_;
};

/// `menuIconSize` The size in points at which icons are requested: a square as high as the letter
/// "A" in the menu bar font at its standard size (see `kvl::menuBarTextHeight`). Measured once in a
/// process, at the first call. Any thread.
[[nodiscard]] KVL_EXPORT kvl::Size menuIconSize();

/// `menuFormWithIdentifier:fromDictionary:fallback:` The "form" of the first entry of the array
/// "menu" whose own "id" is `identifier`; none when that entry has no form. Without such an entry,
/// the fallback. The "id" inside the form is not looked at. Any thread.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Dictionary> menuFormWithIdentifier(
    std::string_view identifier, DictionaryOrNone dictionary,
    const std::optional<kvl::Dictionary>& fallback = std::nullopt);

/// `addMenuItems:toMenu:images:action:target:` Appends an item for each description, in order;
/// those that give none are skipped. What is in the menu stays. No array does nothing.
///
/// @param images asked for icons during this call only; without one there are no icons
/// @param action what items with a form do; they share it
/// @param target whom the action is for; the items hold it weakly (see `kvl::MenuItem::setTarget`)
KVL_EXPORT void addMenuItems(const ArrayOrNone& items, kvl::Menu& menu,
                             const std::shared_ptr<KVLEncodingImageSource>& images,
                             const kvl::MenuAction& action, const std::weak_ptr<void>& target);

/// `menuItem:images:action:target:` The item that a description gives, with its sub-menus, or null.
/// It is returned without its icon, which is set when the image source has it.
[[nodiscard]] KVL_EXPORT std::shared_ptr<kvl::MenuItem> menuItem(
    DictionaryOrNone description, const std::shared_ptr<KVLEncodingImageSource>& images,
    const kvl::MenuAction& action, const std::weak_ptr<void>& target);

/// Whether the item of a form gets an ellipsis. Receives the form's "id", or none.
using MenuItemCondition = std::function<bool(const std::optional<kvl::String>& identifier)>;

/// `menuItemWithEllipsis:conditionally:` A copy of a description whose "text"
/// (`KVLEncodingKeyText`) ends with "…" (U+2026), which is appended unless it is there already. A
/// missing or empty text stays what it is. No description gives none. Any thread.
///
/// @param condition called once, before anything else; when it returns false, the result is the
///   description itself. Without one there is no condition.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Dictionary> menuItemWithEllipsis(
    DictionaryOrNone description, const MenuItemCondition& condition);

/// `menuItemWithEllipsis:` The same with no condition.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Dictionary> menuItemWithEllipsis(
    DictionaryOrNone description);

/// `applyMenu:asSegments:` Gives the control one segment per item of the menu, in one change: the
/// item's enabled flag, title, sub-menu and tool tip, no image, scaling proportional up or down, a
/// menu indicator exactly where there is a sub-menu. The segments do not follow later changes.
///
/// An empty menu gives one segment that is disabled and labelled "-", with neither image nor menu;
/// its scaling, tool tip and menu indicator stay as they were.
KVL_EXPORT void applyMenu(const kvl::Menu& menu, kvl::SegmentedControl& control);

}  // namespace KVLEncoding
