// Items made from descriptions, with an image source that answers when the test says so.
#pragma once

#include "tests/support/LogCapture.h"
#include "tests/support/PlainImage.h"

#include <local/KVLEncodingMenus.h>
#include <local/platform/SystemVersion.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace kvltest {

class RecordingImageSource final : public KVLEncodingImageSource {
 public:
  struct Request {
    std::string path;
    kvl::Size size;
    Completion completion;
  };

  void imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, kvl::Size size,
                             Completion completionHandler) override {
    requests.push_back({relativePath.text(), size, std::move(completionHandler)});
  }

  std::vector<Request> requests;
};

class MenuFixture : public testing::Test {
 protected:
  ~MenuFixture() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }

  [[nodiscard]] std::shared_ptr<kvl::MenuItem> build(
      KVLEncoding::DictionaryOrNone description) const {
    return KVLEncoding::menuItem(description, images_, action_, target_);
  }

  // An item of type "item" with these keys besides.
  [[nodiscard]] std::shared_ptr<kvl::MenuItem> buildItem(kvl::Dictionary keys) const {
    keys.set("type", "item");
    return build(keys);
  }

  void addItems(const KVLEncoding::ArrayOrNone& items, kvl::Menu& menu) const {
    KVLEncoding::addMenuItems(items, menu, images_, action_, target_);
  }

  // Constant after construction.
  const LogCapture log_;
  const std::shared_ptr<RecordingImageSource> images_ = std::make_shared<RecordingImageSource>();
  const kvl::MenuAction action_{[](const std::shared_ptr<kvl::MenuItem>&) {}};
  const std::shared_ptr<int> target_ = std::make_shared<int>(1);
};

}  // namespace kvltest
