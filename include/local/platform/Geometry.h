/// @file
/// Sizes and rectangles.
#pragma once

#include <local/platform/Export.h>

namespace kvl {

/// A width and a height, in points.
struct Size {
  double width = 0;   ///< from side to side
  double height = 0;  ///< from top to bottom
  /// Both equal, as numbers.
  friend bool operator==(const Size&, const Size&) = default;
};

/// A rectangle: its origin and its extent, in points.
struct Rect {
  double x = 0;       ///< of the origin
  double y = 0;       ///< of the origin
  double width = 0;   ///< from the origin on
  double height = 0;  ///< from the origin on
  /// All four equal, as numbers.
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace kvl
