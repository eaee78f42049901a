/// @file
/// Images.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/Geometry.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kvl {

/// @name Limits of images
/// Data beyond one of these is refused. They are far above what icons need, and keep whatever a
/// service sends, broken or hostile, from taking more than 64 MiB.
/// @{
/// The longest encoded image, in bytes.
inline constexpr std::size_t kMaximumImageBytes = std::size_t{16} << 20;
/// The greatest width and height: in pixels, or in points of a drawing (SVG, PDF).
inline constexpr std::uint32_t kMaximumImageSide = 16384;
/// The most pixels that are decoded, such as 2048 x 2048. Checked before any are.
inline constexpr std::uint64_t kMaximumImagePixels = std::uint64_t{1} << 22;
/// The most pixels that `Image::rasterised` makes, such as 1024 x 1024.
inline constexpr std::uint64_t kMaximumBitmapPixels = std::uint64_t{1} << 20;
/// @}

/// Pixels. Rows go from top to bottom without gaps, pixels from left to right. A pixel is four
/// bytes: red, green, blue, alpha, in sRGB, the colours multiplied by the alpha.
struct Bitmap {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  /// `height` rows of `stride()` bytes.
  Data pixels;

  /// Bytes from one row to the next.
  [[nodiscard]] std::size_t stride() const noexcept { return std::size_t{width} * 4; }
  [[nodiscard]] bool empty() const noexcept { return pixels.empty(); }
};

/// A picture, decoded from PNG, JPEG, GIF, TIFF, WebP, SVG or PDF. Any thread may use one at any
/// time; each property is atomic by itself.
///
/// The decoders are a module, `kvlocal/libkvlocal-images.so` beside the library, which the first
/// image loads and which then stays. Without it there are no images, and one line in the log says
/// so.
class KVL_EXPORT Image {
 public:
  /// The image that `data` holds, or null when there is none in it. Any thread, and several at
  /// once.
  ///
  /// The first bytes tell the format. Uses the first frame of an animation and the first page of a
  /// PDF, whose background is transparent. Refuses data that ends too early or exceeds one of the
  /// limits above, and also:
  ///
  /// - a TIFF that is compressed otherwise than with LZW, Deflate, PackBits or CCITT;
  /// - a TIFF in the layout that is meant for files above 4 GiB;
  /// - an SVG above 1 MiB, or of more than 10,000 elements;
  /// - an SVG with an attribute of more than 32 KiB, or as much in its style sheets;
  /// - an SVG with more than 4 KiB of text to be drawn;
  /// - an SVG that declares entities, or is in another encoding than UTF-8;
  /// - an SVG that embeds other files, or has elements within a style sheet;
  /// - an SVG that fills with patterns, or has more dashes than an icon needs;
  /// - a PDF that is encrypted, or fills with tiles;
  /// - a PDF that packs its parts otherwise than with Deflate;
  /// - a PDF whose bitmaps are packed otherwise than with Deflate, JPEG or CCITT.
  ///
  /// Nothing outside an SVG is ever read: its references to other files are left out.
  [[nodiscard]] static std::shared_ptr<Image> imageWithData(const Data& data);

  virtual ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  /// The encoded bytes that the image was made from.
  [[nodiscard]] virtual Data data() const = 0;

  /// @name Size in points
  /// @{
  /// The size that the file itself states: for bitmaps one point for each pixel, whatever density
  /// the file states; for SVG its width and height in CSS pixels, else those of its view box, else
  /// 300 x 150; for PDF the page's crop box. Never empty.
  [[nodiscard]] virtual Size naturalSize() const = 0;
  /// The size at which the image is shown: the natural one until somebody sets another. Atomic.
  [[nodiscard]] virtual Size size() const = 0;
  virtual void setSize(Size size) = 0;
  /// @}

  /// Whether only the image's shape counts, so that it is drawn in the text's colour. Atomic.
  [[nodiscard]] virtual bool isTemplate() const = 0;
  virtual void setTemplate(bool isTemplate) = 0;

  /// The image at its present `size`, with `scale` pixels to the point (rounded to whole pixels, at
  /// least one). SVG and PDF are drawn anew, so they are sharp at any scale; others are resampled.
  /// A template is drawn like any other image: its shape is the alpha.
  ///
  /// What would exceed `kMaximumBitmapPixels`, or for an SVG with many layers the memory that they
  /// take, comes with fewer pixels instead: show it at `size` all the same. Empty when the size or
  /// the scale is not above 0 and finite, or when the drawing fails. Nothing is kept: whoever shows
  /// an image often keeps the bitmap.
  ///
  /// Any thread. The limits bound the memory, not the time: that is as long as the drawing takes,
  /// which may be seconds for an SVG of many dashed lines. Whoever draws what others send does so
  /// on a thread that may wait.
  [[nodiscard]] virtual Bitmap rasterised(double scale) const;

 protected:
  Image() = default;
};

}  // namespace kvl
