/// @file
/// Sizes and rectangles.
#pragma once

#include <local/platform/Export.h>

namespace kvl {

/// A width and a height, in points.
struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

/// A rectangle: its origin and its extent, in points.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace kvl
