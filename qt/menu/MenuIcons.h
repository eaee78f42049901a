// The pictures of a menu's icons.
#pragma once

#include <local/platform/Image.h>

#include <QImage>
#include <cstddef>
#include <functional>
#include <memory>

namespace kvl::qt {

// Draws images on worker threads, since a drawing may take seconds, and keeps the pictures. One per
// menu view, whose member it is. GUI thread. It may be destroyed while images are being drawn, and
// the image, the view and the application may, too: what is not finished is forgotten.
class MenuIcons {
 public:
  // The most pictures that are kept; those that were not asked for longest go first. More than the
  // rows of any screen, or rows would take one another's pictures for ever.
  static constexpr std::size_t kMostPictures = 512;

  // How many images are drawn at the same time at most, in all menus: usually two, and more while
  // some take long.
  static constexpr int kMostDrawings = 8;

  // Is told, once the event loop runs, that the picture of an image has come. It does not destroy
  // the icons.
  using Arrival = std::function<void(const std::shared_ptr<Image>& image)>;

  explicit MenuIcons(Arrival arrival);
  ~MenuIcons();
  MenuIcons(const MenuIcons&) = delete;
  MenuIcons& operator=(const MenuIcons&) = delete;

  // The picture of the image at its present size, shrunk to fit a square of `side()`, with `scale`
  // pixels to the point. Null until it has been drawn, which the first call starts, and for an
  // image that cannot be drawn.
  [[nodiscard]] QImage picture(const std::shared_ptr<Image>& image, double scale);

  // The side in points of the square that icons are centred in.
  [[nodiscard]] static int side();

 private:
  class Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
