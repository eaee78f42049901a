// What the dashes of an SVG's lines would cost.
#pragma once

#include <string_view>

namespace kvl::images {

// Adds up a document's elements. Each dash takes memory, however short it is, and lines may go far
// outside the drawing: the longest line is estimated from the numbers of its element.
class DashCosts {
 public:
  // An attribute or a style sheet of the element that is looked at now.
  void take(std::string_view name, std::string_view value);
  void endOfElement();

  [[nodiscard]] bool areModest() const;

 private:
  void takeDashes(std::string_view value);

  bool dashed_ = false;
  bool unknown_ = false;  // lengths that numbers alone do not tell
  double shortest_ = 1e9;
  double length_ = 0;
  double longest_ = 0;
};

}  // namespace kvl::images
