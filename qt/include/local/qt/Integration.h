/// @file
/// What the framework asks of the desktop, answered by Qt.
#pragma once

#include <local/platform/Export.h>

#include <memory>

namespace kvl::qt {

/// As long as one lives, Qt answers what the framework asks of the desktop (see `Workspace.h` and
/// `FontMeasurement.h`).
///
/// - Web addresses are opened with `QDesktopServices`, on the GUI thread. Another thread hands its
///   address over and is told that it has been opened; if it turns out that it cannot be, the log
///   says so. Only those of the schemes "http" and "https" are opened, relative references never.
/// - Errors are shown in a message box that belongs to the active window and does not block: one at
///   a time, and none twice at the same time. Texts are plain texts. When more than 20 wait, the
///   log has the rest.
/// - Text is measured in the font of menu bars.
/// - Blocks of `DispatchQueue::main()` run in Qt's event loop also where Qt has been built or is
///   run without GLib.
///
/// Make one after the `QApplication` and before anything that builds menus, on the GUI thread, and
/// destroy it before the application. What was set before is set again then. While several live,
/// the one made last answers; they may be destroyed in any order.
class KVL_EXPORT Integration {
 public:
  /// Takes over from the one before, if one lives.
  Integration();
  ~Integration();
  Integration(const Integration&) = delete;
  Integration& operator=(const Integration&) = delete;

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
