#include "examples/qthost/Palettes.h"

namespace qthost {
namespace {

constexpr QRgb kWindow = 0xff2d2d2d;
constexpr QRgb kBase = 0xff1e1e1e;
constexpr QRgb kText = 0xfff0f0f0;
constexpr QRgb kFaintText = 0xff808080;
constexpr QRgb kHighlight = 0xff2a6fc9;

}  // namespace

QPalette darkPalette() {
  QPalette palette{QColor(kWindow)};
  palette.setColor(QPalette::Base, QColor(kBase));
  palette.setColor(QPalette::AlternateBase, QColor(kBase).lighter(120));
  palette.setColor(QPalette::PlaceholderText, QColor(kFaintText));
  palette.setColor(QPalette::Highlight, QColor(kHighlight));
  palette.setColor(QPalette::HighlightedText, QColor(kText));
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(role, QColor(kText));
    palette.setColor(QPalette::Disabled, role, QColor(kFaintText));
  }
  return palette;
}

}  // namespace qthost
