// What the user sees, as a picture.
#pragma once

#include <QPixmap>

class QWidget;

namespace qthost {

// The window with the dialogs and menus that it has open, each where it is on the screen. Whatever
// else is on the screen is not in the picture. GUI thread.
[[nodiscard]] QPixmap pictureOf(QWidget& window);

}  // namespace qthost
