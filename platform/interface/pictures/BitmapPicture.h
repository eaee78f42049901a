// Pictures that are pixels. A large one is kept small and read again when more of it is drawn.
#pragma once

#include "platform/interface/pictures/Decoders.h"
#include "platform/interface/pictures/GLibPointers.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <functional>
#include <optional>

namespace kvl::pictures {

using interface::PixelSize;
using PixbufPtr = ObjectPtr<GdkPixbuf>;

// How much of a bitmap is to be read.
class Wanted {
 public:
  // As much as is kept.
  Wanted() = default;
  // As much as is to be drawn.
  explicit Wanted(PixelSize drawn) : drawn_(drawn) {}

  [[nodiscard]] bool isForDrawing() const { return drawn_.has_value(); }
  // The fewest pixels of a bitmap of `whole` that do. Never more than it has.
  [[nodiscard]] PixelSize of(PixelSize whole) const;
  // For one that is turned by a quarter after it has been read.
  [[nodiscard]] Wanted turned() const;

 private:
  std::optional<PixelSize> drawn_;
};

struct ReadBitmap {
  PixbufPtr pixbuf;  // null when it failed; of the size wanted, or larger
  PixelSize whole;   // how large it is in the file
  bool isTurned = false;
};
using ReadFunction = std::function<ReadBitmap(const Wanted& wanted)>;

// Whether it is not larger than an image may be.
[[nodiscard]] bool isWithinLimits(PixelSize whole);
// With memory for its pixels, or null.
[[nodiscard]] PixbufPtr makePixbuf(PixelSize size, bool hasAlpha);
// The bitmap that `read` reads. Null when it cannot; one that is never drawn when it is too large.
[[nodiscard]] PicturePtr makeBitmapPicture(ReadFunction read);

}  // namespace kvl::pictures
