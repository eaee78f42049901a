/// @file
/// Sizes of text. The framework draws no text itself, so a toolkit binding measures for it.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Geometry.h>

#include <memory>
#include <string_view>

namespace kvl {

/// Measures text for the framework. A toolkit binding has one.
class KVL_EXPORT FontMeasurement {
 public:
  virtual ~FontMeasurement();
  FontMeasurement(const FontMeasurement&) = delete;
  FontMeasurement& operator=(const FontMeasurement&) = delete;

  /// The size in points of `text` set on one line in the menu bar font at its standard size. Called
  /// on whatever thread needs it, with no lock of the framework held but that of a measurement
  /// that is made only once.
  [[nodiscard]] virtual Size menuBarTextSize(std::string_view text) = 0;

 protected:
  FontMeasurement() = default;
};

/// The height in points of a line in the menu bar font for hosts without a toolkit: the interface
/// fonts of common desktops, at their usual 10 or 11 points, measure 14 to 15, and a whole number
/// keeps icons of that size sharp.
inline constexpr double kDefaultMenuBarTextHeight = 15;

/// Sets what measures text, for the whole process and from any thread; none stands for the default
/// height. A binding calls it once, before anything is measured: what has been measured already is
/// not measured again.
KVL_EXPORT void setFontMeasurement(std::shared_ptr<FontMeasurement> measurement);

/// The height in points of `text` in the menu bar font at its standard size, measured now;
/// `kDefaultMenuBarTextHeight` when nothing measures, or brings no finite height above 0.
[[nodiscard]] KVL_EXPORT double menuBarTextHeight(std::string_view text);

}  // namespace kvl
