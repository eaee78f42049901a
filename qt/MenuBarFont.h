// How large text is in the menu bars of the application.
#pragma once

#include <local/platform/FontMeasurement.h>

#include <QFont>
#include <QObject>
#include <memory>
#include <mutex>
#include <string_view>

class QThread;

namespace kvl::qt {

// Any thread measures; it touches no widget. On the GUI thread the font is what it is at that
// moment. On others it is what it was when the GUI thread measured last, or when the loop ran after
// the font of the whole application had changed: fonts of kinds of widgets tell nobody.
class MenuBarTextMeasurement final : public FontMeasurement {
 public:
  // GUI thread.
  MenuBarTextMeasurement();

  // Of the line that a menu would show (see `lineOf`). 0 x 0 after the end.
  [[nodiscard]] Size menuBarTextSize(std::string_view text) override;

  // GUI thread. Looks the font up again.
  void update();
  // No text is measured when it returns, and none will be.
  void end();

 private:
  const QThread* const gui_;
  std::mutex mutex_;
  bool ended_ = false;
  QFont font_;
};

// Keeps the measurement's font that of menu bars, as long as it lives. GUI thread.
class MenuBarFont final : public QObject {
 public:
  MenuBarFont();
  ~MenuBarFont() override;

  [[nodiscard]] const std::shared_ptr<MenuBarTextMeasurement>& measurement() const {
    return measurement_;
  }

 private:
  const std::shared_ptr<MenuBarTextMeasurement> measurement_ =
      std::make_shared<MenuBarTextMeasurement>();
};

}  // namespace kvl::qt
