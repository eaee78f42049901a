// Images in the decoder's process, as the host sees them.
#pragma once

#include "platform/interface/protocol/ImageMessage.h"

#include <local/platform/Data.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Image.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kvl::interface {

// What one image is to the decoders. Shared by the image and its requests.
class ImageSource {
 public:
  ImageSource(Data bytes, ImageFormat format);
  ~ImageSource();
  ImageSource(const ImageSource&) = delete;
  ImageSource& operator=(const ImageSource&) = delete;

  // Its image has been let go: what waits is dropped, what runs ends soon. Never waits. Any thread.
  void letGo() noexcept;

  class State;

 private:
  friend class ImageDecoding;
  const std::shared_ptr<State> state_;
};

class ImageDecoding {
 public:
  using SizeHandler = std::function<void(std::optional<Size> naturalSize)>;
  using BitmapHandler = std::function<void(Bitmap bitmap)>;

  struct Options {
    std::vector<std::filesystem::path> places;  // of the program; empty: where this library lies
    std::chrono::milliseconds processorTime = kMaximumImageTime;  // of one decoding or drawing
    std::chrono::milliseconds share{100};                         // wall time, while others wait
    std::chrono::milliseconds wallTime{20'000};                   // of one request
    std::chrono::milliseconds idle{60'000};                       // after which the program ends
    std::chrono::milliseconds retry{1'000};                       // after a start that failed
    std::shared_ptr<DispatchQueue> queue;  // of those that do not wait; empty: one of its own
    // Calls what it is given after a delay; empty: the framework's own timers.
    std::function<void(std::chrono::nanoseconds, std::function<void()>)> later;
  };

  explicit ImageDecoding(Options options);
  ~ImageDecoding();  // ends its processes
  ImageDecoding(const ImageDecoding&) = delete;
  ImageDecoding& operator=(const ImageDecoding&) = delete;

  // The process's own, never destroyed.
  static ImageDecoding& process();

  // Starts the program unless it runs. Returns at once. Any thread.
  void prepare();

  // Wait. None, and one line in the log, when it fails; none at once while the process exits and in
  // a forked child.
  [[nodiscard]] std::optional<Size> open(const std::shared_ptr<ImageSource>& source);
  [[nodiscard]] Bitmap draw(const std::shared_ptr<ImageSource>& source, PixelSize size);
  // Do not wait. The handler is called once on the queue, or destroyed uncalled once the source has
  // been let go.
  void open(std::shared_ptr<ImageSource> source, SizeHandler handler);
  void draw(std::shared_ptr<ImageSource> source, PixelSize size, BitmapHandler handler);

 private:
  class Implementation;
  const std::shared_ptr<Implementation> implementation_;
};

}  // namespace kvl::interface
