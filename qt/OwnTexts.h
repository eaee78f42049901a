// The binding's own texts in the user's language.
#pragma once

namespace kvl::qt {

// Any thread. Installs a translator into the application's object, once in each: at once on the
// application's thread, from elsewhere when its event loop runs again. One that the host installs
// later goes before it.
void translateOwnTexts();

}  // namespace kvl::qt
