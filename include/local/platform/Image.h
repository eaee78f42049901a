/// @file
/// Images.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/Geometry.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace kvl {

/// @name Limits of images
/// What goes beyond one of these ends without an image or without a bitmap, and with a line in the
/// log that says why. None of them concerns the host's process, which decodes nothing.
/// @{

/// The longest encoded image, in bytes.
inline constexpr std::size_t kMaximumImageBytes = std::size_t{16} << 20;
/// The greatest width and height that a file may state: in pixels, or in points of a drawing (SVG,
/// PDF).
inline constexpr std::uint32_t kMaximumImageSide = 65'535;
/// The most pixels that `Image::rasterised` makes: enough for a screen of 7680 x 4320.
inline constexpr std::uint64_t kMaximumBitmapPixels = std::uint64_t{1} << 25;
/// The greatest width and height of what `Image::rasterised` makes, in pixels.
inline constexpr std::uint32_t kMaximumBitmapSide = 16'384;
/// The processor time that one decoding, or one drawing, may take. Its end comes after 20 s even if
/// it takes none.
inline constexpr std::chrono::milliseconds kMaximumImageTime{2000};
/// The memory in bytes that it may take in the decoder's process, besides the encoded bytes and the
/// bitmap.
inline constexpr std::size_t kMaximumImageMemory = std::size_t{256} << 20;
/// @}

/// Pixels. Rows go from top to bottom without gaps, pixels from left to right. A pixel is four
/// bytes: red, green, blue, alpha, in sRGB, the colours multiplied by the alpha.
struct Bitmap {
  std::uint32_t width = 0;   ///< in pixels
  std::uint32_t height = 0;  ///< in pixels
  /// `height` rows of `stride()` bytes.
  Data pixels;

  /// Bytes from one row to the next.
  [[nodiscard]] std::size_t stride() const noexcept { return std::size_t{width} * 4; }
  /// Whether there is no bitmap: a drawing has failed.
  [[nodiscard]] bool empty() const noexcept { return pixels.empty(); }
};

/// A picture, decoded from PNG, JPEG, GIF, TIFF, WebP, BMP, ICO, SVG or PDF. Any thread may use one
/// at any time; each property is atomic by itself.
///
/// Nothing is decoded or drawn in the host's process: `kvlocal-0.1/kvlocal-image-decoder`, a
/// program beside the library, does it. The first image starts it; it ends after a minute without
/// work, or with the host. It has neither the host's environment nor its descriptors, and can write
/// no file, open no connection and start no program. Whatever an image does there costs that image
/// only: there is none, and one line in the log says why. Without the program, or where no process
/// may be started, there are no images.
class KVL_EXPORT Image {
 public:
  /// Receives the image, or null when there is none.
  using Completion = std::function<void(std::shared_ptr<Image> image)>;
  /// Receives the bitmap, empty when the drawing failed.
  using BitmapHandler = std::function<void(Bitmap bitmap)>;

  /// The image that `data` holds, or null when there is none in it; then the log says why.
  ///
  /// The first bytes tell the format. Uses the first frame of an animation, the largest picture of
  /// an ICO, and the first page of a PDF, whose background is transparent. Refuses what exceeds one
  /// of the limits above. Nothing outside the data is ever read: an SVG's references to other files
  /// are left out.
  ///
  /// Waits for the decoder: some 40 ms for the first image, then usually less than a millisecond,
  /// at worst for as long as `kMaximumImageTime` allows to it and to those before it. Any thread,
  /// several at once; not for one that must not wait, such as the main thread.
  [[nodiscard]] static std::shared_ptr<Image> imageWithData(const Data& data);
  /// The same without waiting. `completion` is called once, on a worker thread, with no lock held;
  /// not when the process exits before.
  static void imageWithData(const Data& data, Completion completion);
  /// Draws `image` as `rasterised` does, without waiting. `handler` is called once, on a worker
  /// thread, with no lock held; not when the process exits before.
  ///
  /// Does not keep an image that the framework decoded: once nobody holds it, the drawing ends and
  /// `handler` is destroyed without a call. Of any other class, `rasterised` is called on a worker
  /// thread, which keeps the image until then.
  static void rasterise(const std::shared_ptr<Image>& image, double scale, BitmapHandler handler);

  /// Never waits: what is being decoded or drawn for the image ends soon.
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
  /// Changes how large the image is shown, for everybody who shares it. Draws nothing.
  virtual void setSize(Size size) = 0;
  /// @}

  /// Whether only the image's shape counts, so that it is drawn in the text's colour. Atomic.
  [[nodiscard]] virtual bool isTemplate() const = 0;
  /// Changes it for everybody who shares the image. Draws nothing.
  virtual void setTemplate(bool isTemplate) = 0;

  /// The image at its present `size`, with `scale` pixels to the point (rounded to whole pixels, at
  /// least one). SVG and PDF are drawn anew, so they are sharp at any scale; others are resampled.
  /// A template is drawn like any other image: its shape is the alpha.
  ///
  /// What would exceed `kMaximumBitmapPixels` comes with fewer pixels instead, and so does a large
  /// drawing that takes more than `kMaximumImageMemory`: show it at `size` all the same. Empty when
  /// the size or the scale is not above 0 and finite, or when the drawing fails. Nothing is kept:
  /// whoever shows an image often keeps the bitmap.
  ///
  /// Waits for the decoder, as `imageWithData` does. Any thread that may wait.
  [[nodiscard]] virtual Bitmap rasterised(double scale) const;

 protected:
  Image() = default;
};

}  // namespace kvl
