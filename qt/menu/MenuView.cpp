#include "qt/controls/WidgetTeardown.h"
#include "qt/menu/MenuStyle.h"
#include "qt/menu/MenuViewImplementation.h"

#include <local/qt/MenuView.h>

#include <QCoreApplication>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QResizeEvent>
#include <utility>

namespace kvl::qt {

// Only a view knows what it has.
const MenuContents* MenuContents::of(const QWidget* widget) {
  const auto* view = qobject_cast<const MenuView*>(widget);
  return view ? view->implementation_.get() : nullptr;
}

MenuView::MenuView(std::shared_ptr<Menu> menu, QWidget* parent)
    : QMenu(parent), implementation_(std::make_unique<Implementation>(*this)) {
  implementation_->begin();
  setStyle(MenuStyle::shared());
  setSeparatorsCollapsible(false);
  setToolTipsVisible(true);
  setMenu(std::move(menu));
}

MenuView::MenuView(std::shared_ptr<Menu> menu, const QString& title, QWidget* parent)
    : MenuView(std::move(menu), parent) {
  setTitle(title);
}

MenuView::~MenuView() {
  if (isVisible() && QCoreApplication::instance()) hide();
  markHiddenWithoutApplication(*this);
}

std::shared_ptr<Menu> MenuView::menu() const {
  return implementation_->menu();
}

void MenuView::setMenu(std::shared_ptr<Menu> menu) {
  implementation_->setMenu(std::move(menu));
}

std::shared_ptr<MenuItem> MenuView::itemOf(const QAction* action) const {
  const auto* own = implementation_->ownAction(action);
  return own ? own->item() : nullptr;
}

QAction* MenuView::actionOf(const MenuItem& item) const {
  return implementation_->actionOf(item);
}

void MenuView::refresh() {
  implementation_->refresh();
}

QSize MenuView::sizeHint() const {
  return implementation_->sizeHint();
}

void MenuView::initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const {
  QMenu::initStyleOption(option, action);
  implementation_->setCurrent(*option, action);
}

bool MenuView::event(QEvent* event) {
  switch (event->type()) {
    case QEvent::FontChange:
    case QEvent::StyleChange:
      implementation_->forgetMeasures();
      break;
    case QEvent::LanguageChange:
    case QEvent::LocaleChange:
      implementation_->refreshAll();
      break;
    case QEvent::Resize:
      if (!implementation_->isLaidOut()) break;
      resizeEvent(static_cast<QResizeEvent*>(event));
      return true;
    case QEvent::KeyPress:
      if (implementation_->goToInitial(static_cast<const QKeyEvent&>(*event))) return true;
      break;
    case QEvent::ToolTip:
      if (implementation_->showWholeText(static_cast<const QHelpEvent&>(*event))) return true;
      break;
    default:
      if (implementation_->take(*event)) return true;
  }
  return implementation_->handle(*event);
}

}  // namespace kvl::qt
