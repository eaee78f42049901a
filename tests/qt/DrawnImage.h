// An image of one colour that tells how often it was drawn, and waits if it is told to.
#pragma once

#include <local/platform/Image.h>

#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace kvltest {

// Any thread.
class DrawnImage final : public kvl::Image {
 public:
  // No drawing of the image ends as long as this lives.
  class Held {
   public:
    explicit Held(const DrawnImage& image) : image_(image) { image.hold(true); }
    ~Held() { image_.hold(false); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

   private:
    const DrawnImage& image_;
  };

  explicit DrawnImage(kvl::Size size = {12, 12}, bool isTemplate = false)
      : size_(size), isTemplate_(isTemplate) {}

  [[nodiscard]] kvl::Data data() const override { return {}; }
  [[nodiscard]] kvl::Size naturalSize() const override { return {12, 12}; }
  [[nodiscard]] kvl::Size size() const override {
    const std::lock_guard lock(mutex_);
    return size_;
  }
  void setSize(kvl::Size size) override {
    const std::lock_guard lock(mutex_);
    size_ = size;
  }
  [[nodiscard]] bool isTemplate() const override { return isTemplate_; }
  void setTemplate(bool) override {}

  // Has another size by the time it is drawn.
  void growsTo(kvl::Size size) {
    const std::lock_guard lock(mutex_);
    grown_ = size;
  }
  [[nodiscard]] int drawings() const {
    const std::lock_guard lock(mutex_);
    return drawings_;
  }

  // Opaque red.
  [[nodiscard]] kvl::Bitmap rasterised(double scale) const override {
    std::unique_lock lock(mutex_);
    ++drawings_;
    changed_.wait(lock, [&] { return !held_; });
    const kvl::Size size = grown_.value_or(size_);
    if (size.width <= 0 || size.height <= 0) return {};
    kvl::Bitmap bitmap;
    bitmap.width = static_cast<std::uint32_t>(std::lround(size.width * scale));
    bitmap.height = static_cast<std::uint32_t>(std::lround(size.height * scale));
    std::vector<std::uint8_t> pixels(bitmap.stride() * bitmap.height, 0xff);
    for (std::size_t i = 0; i < pixels.size(); i += 4) pixels[i + 1] = pixels[i + 2] = 0;
    bitmap.pixels = kvl::Data(std::move(pixels));
    return bitmap;
  }

 private:
  void hold(bool held) const {
    {
      const std::lock_guard lock(mutex_);
      held_ = held;
    }
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  mutable bool held_ = false;
  mutable int drawings_ = 0;
  kvl::Size size_;
  std::optional<kvl::Size> grown_;
  const bool isTemplate_;
};

}  // namespace kvltest
