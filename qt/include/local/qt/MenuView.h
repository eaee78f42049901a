/// @file
/// Menus on the screen.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Menu.h>
#include <local/platform/MenuItem.h>

#include <QMenu>
#include <memory>

class QEvent;
class QStyleOptionMenuItem;

namespace kvl::qt {

class MenuContents;

/// A `QMenu` that shows a `kvl::Menu` and follows it.
///
/// It shows section headers, second lines, badges, marks (mixed ones too), icons, key equivalents,
/// tool tips and sub-menus. Add it to a `QMenuBar`, give it to a `QToolButton` or `popup` it, like
/// any other `QMenu`. Actions that the host adds itself are shown below those of the model. For
/// hosts that show actions elsewhere, the action of an item has its title, icon, mark, keys and
/// tool tip, too.
///
/// The model may change on any thread; the view follows on the GUI thread, once the event loop runs
/// again, or before that when it opens. All changes until then are one. Items that stay keep their
/// actions, so the one that is highlighted stays so and an open sub-menu stays open.
///
/// View and model may be destroyed in any order, also while the menu is shown, from inside an
/// action and after the application; the view holds its model. A view does not follow its model
/// beyond its application.
///
/// A key equivalent is one character, pressed together with Ctrl: an upper-case letter together
/// with Shift as well; control characters stand for Return, Tab, Escape, Backspace and Delete, and
/// U+F700 to U+F735 for the keys that type nothing, such as arrows and F1. Longer ones have no key.
/// The keys work before the menu has ever been opened, in sub-menus too: down to 16 levels, and in
/// the first 1,000 menus. Of several items with the same key the first one that is enabled is
/// chosen, in the order in which a menu bar shows them. When an action of the host's own has the
/// same key, either of the two may be chosen.
///
/// A letter or digit that is typed while the menu is open highlights the next item whose title
/// begins with it, whichever its case and accents are, and chooses nothing. Mnemonics of actions of
/// the host's own come first.
///
/// A menu is as wide as its texts need, up to the width of the screen. The highlighted item has the
/// colours of the theme, unless their contrast is below 2:1.
///
/// Of any text the first 1,000 characters are shown, in a line where there is one line. A title
/// that does not fit is cut short; the tool tip of an item that has none says it in full.
///
/// A view has a style of its own, which asks the application's. While the application has a style
/// sheet with rules for `QMenu::item`, views that are made show their items as any menu does:
/// without second lines, badges and mixed marks. Give such rules to the host's own menus only.
class KVL_EXPORT MenuView : public QMenu {
  Q_OBJECT

 public:
  /// @param menu null for none
  explicit MenuView(std::shared_ptr<Menu> menu, QWidget* parent = nullptr);
  /// @param menu null for none
  /// @param title where the menu is a sub-menu, or in a menu bar
  MenuView(std::shared_ptr<Menu> menu, const QString& title, QWidget* parent = nullptr);
  ~MenuView() override;

  /// What the view shows; null for none.
  [[nodiscard]] std::shared_ptr<Menu> menu() const;
  /// Shows `menu` instead of the one before; null shows none.
  void setMenu(std::shared_ptr<Menu> menu);

  /// The item that `action` stands for; null when it is none of this view's own.
  [[nodiscard]] std::shared_ptr<MenuItem> itemOf(const QAction* action) const;
  /// The action that stands for `item`, the first one if there are two, or null. It belongs to the
  /// view and goes away with the item.
  [[nodiscard]] QAction* actionOf(const MenuItem& item) const;

  /// Takes over now what has changed in the model, instead of when the event loop runs.
  void refresh();

  /// As large as the items need.
  [[nodiscard]] QSize sizeHint() const override;

 Q_SIGNALS:
  /// The user has chosen `item`, whose action has been sent, if it has one. Both happen when the
  /// menu has closed, within the event that chose it. For items of sub-menus each menu above emits
  /// it, too.
  void itemChosen(const std::shared_ptr<kvl::MenuItem>& item);

 protected:
  /// As Qt asks, while it measures or draws the item of `action`.
  void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override;
  /// Follows font, style and language, and knows the keys of menus.
  bool event(QEvent* event) override;

 private:
  friend class MenuContents;
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
