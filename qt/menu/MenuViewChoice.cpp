// What the user chooses in menu views: how the choice is sent, which action has keys that several
// have, and which one a letter leads to.
#include "qt/PlainText.h"
#include "qt/menu/MenuViewImplementation.h"

#include <QKeyEvent>
#include <QMenuBar>
#include <QPointer>
#include <QStyle>
#include <QThread>
#include <algorithm>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

// The views in the same menu bar, in its order.
std::vector<const MenuView*> viewsBeside(const MenuView& view) {
  for (auto* shownBy : view.menuAction()->associatedObjects()) {
    const auto* bar = qobject_cast<const QMenuBar*>(shownBy);
    if (!bar) continue;
    std::vector<const MenuView*> views;
    for (const auto* action : bar->actions())
      if (const auto* beside = qobject_cast<const MenuView*>(action->menu()); beside)
        views.push_back(beside);
    return views;
  }
  return {&view};
}

// The first letter or digit, without accents and in one case; 0 where there is none.
char32_t initialOf(const QString& text) {
  const auto characters = text.toUcs4();
  const auto first = std::ranges::find_if(
      characters, [](char32_t character) { return QChar::isLetterOrNumber(character); });
  if (first == characters.end()) return 0;
  const char32_t letter = *first;
  const auto parts =
      QString::fromUcs4(&letter, 1).normalized(QString::NormalizationForm_KD).toUcs4();
  return QChar::toCaseFolded(char32_t{parts.front()});
}

// 0 for keys that type something else, or are pressed for a shortcut.
char32_t typedInitial(const QKeyEvent& key) {
  const auto modifiers =
      key.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
  return modifiers ? 0 : initialOf(key.text());
}

bool hasMnemonic(const QAction& action, const QString& letter) {
  return QKeySequence::mnemonic(action.text()) == QKeySequence(QLatin1String("Alt+") + letter);
}

}  // namespace

// Others may be handled meanwhile, in an event loop that somebody runs. Each loop sends what was
// chosen in it.
bool MenuView::Implementation::handle(QEvent& event) {
  const int level = QThread::currentThread()->loopLevel();
  if (handling_ == level) return view_.QMenu::event(&event);
  const QPointer<MenuView> view(&view_);
  auto waiting = std::exchange(chosen_, {});
  const auto outer = std::exchange(handling_, level);
  const bool handled = view_.QMenu::event(&event);
  if (!view) return handled;
  handling_ = outer;
  send(std::exchange(chosen_, std::move(waiting)));
  return handled;
}

// A menu goes on to use itself after it has triggered an action, so the item, whose action may
// destroy it, waits for the end of the event.
void MenuView::Implementation::choose(MenuItemAction& action) {
  action.restoreMark();
  if (handling_ == QThread::currentThread()->loopLevel())
    chosen_.push_back(action.item());
  else
    send({action.item()});
}

void MenuView::Implementation::send(const Chosen& items) {
  const QPointer<MenuView> view(&view_);
  for (const auto& item : items) {
    if (!item->isEnabled()) continue;
    item->activate();
    if (!view) return;
    Q_EMIT view->itemChosen(item);
    if (!view) return;
  }
}

// An action of the host's that has the letter as its mnemonic goes first.
bool MenuView::Implementation::goToInitial(const QKeyEvent& key) {
  const auto initial = typedInitial(key);
  if (initial == 0) return false;
  const auto actions = view_.actions();
  const auto count = actions.size();
  for (const auto* action : actions)
    if (hasMnemonic(*action, key.text())) return false;
  const auto from = actions.indexOf(view_.activeAction()) + 1;
  for (qsizetype i = 0; i < count; ++i) {
    auto* const action = actions.at((from + i) % count);
    if (!mayBeActive(*action) || initialOf(readTitle(*action)) != initial) continue;
    highlight(*action);
    return true;
  }
  return false;
}

bool MenuView::Implementation::mayBeActive(const QAction& action) const {
  if (!action.isVisible() || action.isSeparator()) return false;
  return action.isEnabled() ||
         view_.style()->styleHint(QStyle::SH_Menu_AllowActiveAndDisabled, nullptr, &view_) != 0;
}

QString MenuView::Implementation::readTitle(const QAction& action) const {
  const auto* shown = entry(&action);
  return shown ? shown->title : withoutMnemonic(action.text());
}

// A menu opens the sub-menu of an action that it is told to highlight, unless that is disabled; and
// the next letter would go there.
void MenuView::Implementation::highlight(QAction& action) {
  if (auto* own = ownAction(&action); own && own->submenu() && !own->menu())
    makeSubview(static_cast<MenuItemAction&>(action));
  const QPointer<QMenu> below = action.menu();
  const bool opens = below && below->isEnabled();
  if (opens) below->setAttribute(Qt::WA_Disabled);
  view_.setActiveAction(&action);
  if (below && opens) below->setAttribute(Qt::WA_Disabled, false);
}

const MenuView* MenuView::Implementation::viewAbove(const MenuView& view) {
  return qobject_cast<const MenuView*>(view.parentWidget());
}

void MenuView::Implementation::chooseFirstWith(const QKeySequence& keys) {
  const auto* top = &view_;
  while (viewAbove(*top)) top = viewAbove(*top);
  for (const auto* view : viewsBeside(*top))
    if (auto* action = view->implementation_->firstWith(keys)) return action->trigger();
  if (auto* action = firstWith(keys)) action->trigger();
}

// The first action with these keys that can be chosen, in the order in which menus show them.
QAction* MenuView::Implementation::firstWith(const QKeySequence& keys) const {
  for (auto* action : actions_) {
    if (!action->isEnabled()) continue;
    if (action->shortcut() == keys) return action;
    const auto* subview = qobject_cast<MenuView*>(action->menu());
    auto* below = subview ? subview->implementation_->firstWith(keys) : nullptr;
    if (below) return below;
  }
  return nullptr;
}

}  // namespace kvl::qt
