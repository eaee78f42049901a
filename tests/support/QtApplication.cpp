#include "tests/support/QtApplication.h"

#include "tests/support/PrivateDisplay.h"

#include <QFont>
#include <QLocale>
#include <QPalette>
#include <QStyleFactory>
#include <cstdlib>

// Read by the thread sanitizer when the program starts. What libX11 locks, libxcb unlocks, of which
// the sanitizer sees one half, so that its detector of deadlocks fills up with locks that nobody
// holds, and ends in a failure of its own after some dozens of windows. Data races are still found.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "detect_deadlocks=0";
}

namespace kvltest {
namespace {

constexpr int kPoints = 10;

void startDisplayOnce() {
  static const PrivateDisplay display;
}

// Whatever the user's session would add to the look or to the processes.
void isolate(const QtLook& look) {
  setenv("QT_QPA_PLATFORM", "xcb", 1);
  setenv("QT_SCALE_FACTOR", look.scale.c_str(), 1);
  setenv("LC_ALL", look.locale.c_str(), 1);
  setenv("TZ", "UTC", 1);
  setenv("NO_AT_BRIDGE", "1", 1);
  for (const char* name : {"QT_STYLE_OVERRIDE", "QT_QPA_PLATFORMTHEME", "XDG_CURRENT_DESKTOP",
                           "QT_FONT_DPI", "WAYLAND_DISPLAY", "LANGUAGE", "XMODIFIERS"})
    unsetenv(name);
}

void setGroup(QPalette& palette, QPalette::ColorGroup group, QColor text, QColor placeholder) {
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    palette.setColor(group, role, group == QPalette::Disabled ? placeholder : text);
  palette.setColor(group, QPalette::PlaceholderText, placeholder);
}

QPalette paletteOf(QColor window, QColor base, QColor text, QColor placeholder) {
  QPalette palette(window);
  palette.setColor(QPalette::Base, base);
  for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
    setGroup(palette, group, text, placeholder);
  palette.setColor(QPalette::Highlight, QColor(0x2a, 0x6f, 0xc9));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  return palette;
}

}  // namespace

QPalette lightPalette() {
  return paletteOf(QColor(0xf2, 0xf2, 0xf2), Qt::white, QColor(0x1a, 0x1a, 0x1a),
                   QColor(0x90, 0x90, 0x90));
}

QPalette darkPalette() {
  return paletteOf(QColor(0x2d, 0x2d, 0x2d), QColor(0x1e, 0x1e, 0x1e), QColor(0xf0, 0xf0, 0xf0),
                   QColor(0x80, 0x80, 0x80));
}

QtApplication::QtApplication(const QtLook& look) {
  isolate(look);
  startDisplayOnce();
  application_ = std::make_unique<QApplication>(count_, arguments_);
  QLocale::setDefault(QLocale(QString::fromStdString(look.locale).section(QLatin1Char('.'), 0, 0)));
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("fusion")));
  QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), kPoints));
  QApplication::setPalette(look.dark ? darkPalette() : lightPalette());
  QApplication::setLayoutDirection(look.rightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
  for (const auto effect : {Qt::UI_AnimateMenu, Qt::UI_FadeMenu, Qt::UI_AnimateCombo,
                            Qt::UI_AnimateTooltip, Qt::UI_FadeTooltip})
    QApplication::setEffectEnabled(effect, false);
}

QtApplication::~QtApplication() = default;

}  // namespace kvltest
