/// @file
/// Controls that show several segments side by side.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Image.h>
#include <local/platform/Menu.h>
#include <local/platform/Observation.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl {

/// How an image is fitted into the space for it.
enum class ImageScaling : std::uint8_t {
  proportionallyDown = 0,      ///< smaller if need be, aspect kept
  axesIndependently = 1,       ///< exactly, aspect not kept
  none = 2,                    ///< not at all
  proportionallyUpOrDown = 3,  ///< as large as fits, aspect kept
};

/// One segment.
struct Segment {
  bool enabled = true;                ///< whether the user can choose it
  std::string label = {};             ///< one line of plain text, UTF-8; may be empty
  std::shared_ptr<Image> image = {};  ///< beside the label; null for none
  /// How the image is fitted into its place.
  ImageScaling imageScaling = ImageScaling::proportionallyDown;
  std::shared_ptr<Menu> menu = {};          ///< opened instead of being chosen; null for none
  bool showsMenuIndicator = false;          ///< whether a mark tells that there is a menu
  std::optional<std::string> toolTip = {};  ///< shown while the pointer rests on it
  /// Equal members; image and menu are the same objects.
  friend bool operator==(const Segment&, const Segment&) = default;
};

/// A control of several segments, as data: a toolkit binding shows it and follows its changes. Any
/// thread may use it at any time.
class KVL_EXPORT SegmentedControl {
 public:
  /// A control without segments.
  SegmentedControl();
  ~SegmentedControl();
  SegmentedControl(const SegmentedControl&) = delete;
  SegmentedControl& operator=(const SegmentedControl&) = delete;

  /// How many there are now. Another thread may change it meanwhile.
  [[nodiscard]] std::size_t segmentCount() const;
  /// Cuts segments off at the end or appends new ones; those that remain stay as they are.
  void setSegmentCount(std::size_t count);

  /// The segment at `index`; none beyond the last.
  [[nodiscard]] std::optional<Segment> segment(std::size_t index) const;
  /// Replaces the segment at `index`; does nothing beyond the last.
  void setSegment(std::size_t index, Segment segment);

  /// All of them, as they are at one moment.
  [[nodiscard]] std::vector<Segment> segments() const;
  /// Replaces all segments, in one change.
  void setSegments(std::vector<Segment> segments);

  /// Calls `handler` after each change, on the terms of `MenuItem::observe`.
  [[nodiscard]] Observation observe(std::function<void()> handler);

 private:
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl
