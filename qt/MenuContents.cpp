#include "qt/MenuContents.h"

#include "qt/MenuViewImplementation.h"

namespace kvl::qt {

const MenuContents* MenuContents::of(const QWidget* widget) {
  const auto* view = qobject_cast<const MenuView*>(widget);
  return view ? view->implementation_.get() : nullptr;
}

}  // namespace kvl::qt
