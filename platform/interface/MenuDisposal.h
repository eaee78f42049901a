// Destruction of nested menus.
#pragma once

#include <local/platform/Menu.h>

#include <memory>

namespace kvl::interface {

// Lets go of a menu on this thread. Menus that go with it follow one after the other and not inside
// one another, so that their depth takes no stack.
void dispose(std::shared_ptr<Menu> menu);

}  // namespace kvl::interface
