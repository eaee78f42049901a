#include "platform/interface/images/SurfacePicture.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <bit>

namespace kvl::images {
namespace {

struct DemuxerRelease {
  void operator()(WebPDemuxer* demuxer) const noexcept { WebPDemuxDelete(demuxer); }
};

class FirstFrame {
 public:
  explicit FirstFrame(const WebPDemuxer* demuxer)
      : found_(WebPDemuxGetFrame(demuxer, 1, &frame_) != 0) {}
  ~FirstFrame() { WebPDemuxReleaseIterator(&frame_); }
  FirstFrame(const FirstFrame&) = delete;
  FirstFrame& operator=(const FirstFrame&) = delete;

  [[nodiscard]] bool isWhole() const { return found_ && frame_.complete != 0; }

  // Onto its place on a surface that it fits.
  [[nodiscard]] bool decodeOnto(cairo_surface_t* surface) const {
    WebPDecoderConfig config;
    if (WebPInitDecoderConfig(&config) == 0) return false;
    const auto stride = cairo_image_surface_get_stride(surface);
    const auto start = frame_.y_offset * stride + frame_.x_offset * 4;
    config.output.colorspace = std::endian::native == std::endian::little ? MODE_bgrA : MODE_Argb;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = cairo_image_surface_get_data(surface) + start;
    config.output.u.RGBA.stride = stride;
    config.output.u.RGBA.size = std::size_t(stride) * std::size_t(frame_.height);
    return WebPDecode(frame_.fragment.bytes, frame_.fragment.size, &config) == VP8_STATUS_OK;
  }

 private:
  WebPIterator frame_{};
  bool found_;
};

}  // namespace

PicturePtr decodeWebP(Span bytes) {
  const WebPData data{bytes.data(), bytes.size()};
  const std::unique_ptr<WebPDemuxer, DemuxerRelease> demuxer(WebPDemux(&data));
  if (!demuxer) return nullptr;
  const auto width = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH);
  const auto height = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT);
  const FirstFrame frame(demuxer.get());
  if (!isDecodable(width, height) || !frame.isWhole()) return nullptr;
  auto surface = makeSurface(width, height);
  if (!surface || !frame.decodeOnto(surface.get())) return nullptr;
  cairo_surface_mark_dirty(surface.get());
  return makeSurfacePicture(std::move(surface));
}

}  // namespace kvl::images
