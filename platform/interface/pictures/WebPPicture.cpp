#include "platform/interface/pictures/BitmapPicture.h"
#include "platform/interface/pictures/Memory.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kvl::pictures {
namespace {

struct DemuxerRelease {
  void operator()(WebPDemuxer* demuxer) const noexcept { WebPDemuxDelete(demuxer); }
};

// A run of pixels in one direction.
struct Run {
  int start;
  int length;
};

// Where `run` of `whole` pixels is when there are `scaled`: never empty, never outside.
Run scaledRun(Run run, std::uint32_t whole, std::uint32_t scaled) {
  const double factor = static_cast<double>(scaled) / whole;
  const auto limit = static_cast<int>(scaled);
  const int start = std::min(static_cast<int>(std::lround(run.start * factor)), limit - 1);
  const auto end = static_cast<int>(std::lround((run.start + run.length) * factor));
  return {start, std::clamp(end - start, 1, limit - start)};
}

class FirstFrame {
 public:
  explicit FirstFrame(const WebPDemuxer* demuxer)
      : found_(WebPDemuxGetFrame(demuxer, 1, &frame_) != 0) {}
  ~FirstFrame() { WebPDemuxReleaseIterator(&frame_); }
  FirstFrame(const FirstFrame&) = delete;
  FirstFrame& operator=(const FirstFrame&) = delete;

  [[nodiscard]] bool isWhole() const { return found_ && frame_.complete != 0; }

  [[nodiscard]] bool leavesGaps(PixelSize canvas) const {
    return frame_.has_alpha != 0 || std::cmp_less(frame_.width, canvas.width) ||
           std::cmp_less(frame_.height, canvas.height);
  }

  // Onto its place on a canvas that has been scaled to the pixbuf's size.
  [[nodiscard]] bool decodeOnto(GdkPixbuf* pixbuf, PixelSize canvas) const {
    const PixelSize scaled{static_cast<std::uint32_t>(gdk_pixbuf_get_width(pixbuf)),
                           static_cast<std::uint32_t>(gdk_pixbuf_get_height(pixbuf))};
    const auto across = scaledRun({frame_.x_offset, frame_.width}, canvas.width, scaled.width);
    const auto down = scaledRun({frame_.y_offset, frame_.height}, canvas.height, scaled.height);
    WebPDecoderConfig config;
    if (WebPInitDecoderConfig(&config) == 0) return false;
    config.options.use_scaling = scaled == canvas ? 0 : 1;
    config.options.scaled_width = across.length;
    config.options.scaled_height = down.length;
    place(pixbuf, across, down, config.output);
    const auto status = WebPDecode(frame_.fragment.bytes, frame_.fragment.size, &config);
    if (status == VP8_STATUS_OUT_OF_MEMORY) noteLackOfMemory();
    return status == VP8_STATUS_OK;
  }

 private:
  static void place(GdkPixbuf* pixbuf, Run across, Run down, WebPDecBuffer& output) {
    const auto stride = gdk_pixbuf_get_rowstride(pixbuf);
    const auto channels = gdk_pixbuf_get_n_channels(pixbuf);
    const auto start = std::size_t(down.start) * std::size_t(stride) +
                       std::size_t(across.start) * std::size_t(channels);
    output.colorspace = channels == 4 ? MODE_RGBA : MODE_RGB;
    output.is_external_memory = 1;
    output.u.RGBA.rgba = gdk_pixbuf_get_pixels(pixbuf) + start;
    output.u.RGBA.stride = stride;
    output.u.RGBA.size = gdk_pixbuf_get_byte_length(pixbuf) - start;
  }

  WebPIterator frame_{};
  bool found_;
};

ReadBitmap readWebP(Span bytes, const Wanted& wanted) {
  const WebPData data{bytes.data(), bytes.size()};
  const std::unique_ptr<WebPDemuxer, DemuxerRelease> demuxer(WebPDemux(&data));
  if (!demuxer) return {};
  ReadBitmap bitmap;
  bitmap.whole = {WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH),
                  WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT)};
  const FirstFrame frame(demuxer.get());
  if (!frame.isWhole() || !isWithinLimits(bitmap.whole)) return bitmap;
  auto pixbuf = makePixbuf(wanted.of(bitmap.whole), frame.leavesGaps(bitmap.whole));
  if (!pixbuf) return bitmap;
  gdk_pixbuf_fill(pixbuf.get(), 0);
  if (frame.decodeOnto(pixbuf.get(), bitmap.whole)) bitmap.pixbuf = std::move(pixbuf);
  return bitmap;
}

}  // namespace

PicturePtr decodeWebP(Span bytes) {
  return makeBitmapPicture([bytes](const Wanted& wanted) { return readWebP(bytes, wanted); });
}

}  // namespace kvl::pictures
