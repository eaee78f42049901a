// The binding's own texts in the user's language.
#pragma once

namespace kvl::qt {

// Installs a translator into the application's object. One that the host installs goes before it.
void translateOwnTexts();

}  // namespace kvl::qt
