// How a menu view follows its menu.
#pragma once

#include "qt/GuiThread.h"
#include "qt/menu/MenuContents.h"
#include "qt/menu/MenuIcons.h"
#include "qt/menu/MenuItemAction.h"

#include <local/platform/Mutex.h>
#include <local/qt/MenuView.h>

#include <QFontMetrics>
#include <QMargins>
#include <atomic>
#include <memory>
#include <optional>
#include <vector>

class QHelpEvent;
class QKeyEvent;
class QStyleOptionMenuItem;

namespace kvl::interface {
struct MenuDifference;
}

namespace kvl::qt {

// Keeps one `MenuItemAction` for each item of the menu, in the menu's order, and answers those who
// measure, paint and speak of them. `MenuView` calls it, and it listens to the menu and its items.
// GUI thread, except where noted.
//
// MenuViewImplementation.cpp follows the menu, MenuViewSize.cpp measures and places the view, and
// MenuViewChoice.cpp sends what the user chooses.
class MenuView::Implementation final : public MenuContents {
 public:
  explicit Implementation(MenuView& view);
  // Ends all observations. The actions belong to the view.
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  // To be called once the view has its implementation: it hears of new children.
  void begin();

  [[nodiscard]] const std::shared_ptr<Menu>& menu() const { return menu_; }
  void setMenu(std::shared_ptr<Menu> menu);

  // Takes over what has changed; called within itself, when the event loop runs again.
  void refresh();
  // The same for every item, whether it has changed or not.
  void refreshAll();
  // Whether `event` tells that the model has changed, which is taken over then.
  [[nodiscard]] bool take(const QEvent& event);
  // Lets the menu handle `event`, then sends what the user has chosen with it. The view may be gone
  // afterwards.
  [[nodiscard]] bool handle(QEvent& event);
  // Highlights the next row whose title begins with the letter that was typed; false when there is
  // none.
  [[nodiscard]] bool goToInitial(const QKeyEvent& key);
  // Says in full what the entry at `place` shows cut short; false when there is no such entry.
  [[nodiscard]] bool showWholeText(const QHelpEvent& place) const;
  // What entries are measured with is another.
  void forgetMeasures();

  // What the menu gives as its size, which it asks for after each change by itself. While several
  // are being taken over, a menu that is shown stays as it is.
  [[nodiscard]] QSize sizeHint();
  // Whether the entries are where they belong, whatever size the menu gets.
  [[nodiscard]] bool isLaidOut() const;
  // `option` is the action's, to measure or to paint it.
  void setCurrent(QStyleOptionMenuItem& option, const QAction* action);

  // Null for an action that is none of this view's.
  [[nodiscard]] const MenuItemAction* ownAction(const QAction* action) const;
  [[nodiscard]] MenuItemAction* actionOf(const MenuItem& item) const;

  [[nodiscard]] const MenuEntry* entry(const QAction* action) const override;
  [[nodiscard]] const MenuEntry* current() const override;
  [[nodiscard]] MenuColumns columns() const override;
  [[nodiscard]] QSize& currentSize() const override;
  [[nodiscard]] QImage icon(const MenuEntry& entry) const override;

 private:
  using Actions = std::vector<MenuItemAction*>;
  using Chosen = std::vector<std::shared_ptr<MenuItem>>;

  void prepareToShow();
  void refreshAgain();
  bool takeItems();
  bool takeChangedItems();
  void itemChanged(MenuItemAction& action);  // any thread
  bool update(MenuItemAction& action);
  void stopUsing(MenuItemAction& action);

  void showIcon(const std::shared_ptr<Image>& image);

  MenuItemAction* newAction(const std::shared_ptr<MenuItem>& item);
  void leave(MenuItemAction& action);
  void place(const Actions& actions, const interface::MenuDifference& difference);
  [[nodiscard]] bool shows(const QAction& action) const;
  [[nodiscard]] QAction* firstOfHost() const;
  void retire(MenuItemAction& action);
  void deleteRetired();

  void forgetLayout();
  void fitSize();
  [[nodiscard]] bool hasOwnStyle() const;
  [[nodiscard]] const QFontMetrics& roughMetrics();

  [[nodiscard]] bool makesSubviewsAtOnce() const;
  void followSubmenu(MenuItemAction& action);
  void makeSubview(MenuItemAction& action);
  static void dropSubview(MenuItemAction& action);

  void choose(MenuItemAction& action);
  void send(const Chosen& items);

  [[nodiscard]] bool mayBeActive(const QAction& action) const;
  [[nodiscard]] QString readTitle(const QAction& action) const;
  void highlight(QAction& action);

  // Null for a view that is not in another one.
  [[nodiscard]] static const MenuView* viewAbove(const MenuView& view);
  void chooseFirstWith(const QKeySequence& keys);
  [[nodiscard]] QAction* firstWith(const QKeySequence& keys) const;

  [[nodiscard]] MenuColumns measuredColumns() const;

  MenuView& view_;
  QObject& owner_;                    // of the actions; a child of the view
  const int depth_;                   // how many views there are above
  const std::shared_ptr<int> views_;  // how many there are from the topmost one down
  Relay relay_;
  mutable MenuIcons icons_;
  std::shared_ptr<Menu> menu_;
  Actions actions_;              // in the order of the items
  Actions retired_;              // their items left while the menu was shown
  Chosen chosen_;                // and not sent yet
  std::optional<int> handling_;  // an event, in an event loop of this level
  bool refreshing_ = false;
  bool again_ = false;  // something has changed while a refresh went on
  QSize hint_;          // that was given last
  // What the entries' places depend on besides the entries, when the hint was given.
  struct Frame {
    int leastWidth = 0;
    QMargins margins;
    friend bool operator==(const Frame&, const Frame&) = default;
  };
  [[nodiscard]] Frame frame() const { return {view_.minimumWidth(), view_.contentsMargins()}; }
  std::optional<Frame> frame_;
  std::optional<QFontMetrics> rough_;
  int screenWidth_ = 0;          // of the screen where the menu was shown last
  const void* style_ = nullptr;  // the application's, when the menu was shown last
  const MenuItemAction* current_ = nullptr;
  mutable bool marked_ = false;                 // some item of the menu has had a mark
  mutable std::optional<MenuColumns> columns_;  // none when an entry has changed
  mutable MenuColumns measuredWith_;            // the columns of the present layout
  mutable int layout_ = 0;                      // changes when all entries have other sizes

  std::atomic<bool> itemsChanged_{false};
  Mutex mutex_;
  Actions changed_ KVL_GUARDED_BY(mutex_);
  Observation observation_;  // of the list of items
};

}  // namespace kvl::qt
