// An image of which only the identity counts.
#pragma once

#include <local/platform/Image.h>

namespace kvltest {

class PlainImage final : public kvl::Image {
 public:
  [[nodiscard]] kvl::Data data() const override { return {}; }
  [[nodiscard]] kvl::Size naturalSize() const override { return {1, 1}; }
  [[nodiscard]] kvl::Size size() const override { return {1, 1}; }
  void setSize(kvl::Size) override {}
  [[nodiscard]] bool isTemplate() const override { return false; }
  void setTemplate(bool) override {}
};

}  // namespace kvltest
