#include "platform/core/FileContent.h"
#include "platform/urlloading/BodyFeed.h"

#include <local/platform/BodySource.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kvl {
namespace {

class FileBody final : public BodySource {
 public:
  explicit FileBody(std::shared_ptr<const core::FileContent> content) noexcept
      : content_(std::move(content)) {}

  std::optional<std::uint64_t> length() const override { return content_->size(); }

  std::size_t read(std::span<std::uint8_t> room, std::optional<Error>* error) override {
    const std::size_t count =
        content_->readAt(done_, {reinterpret_cast<char*>(room.data()), room.size()}, error);
    done_ += count;
    return count;
  }

  bool rewind() override {
    done_ = 0;
    return true;
  }

 private:
  const std::shared_ptr<const core::FileContent> content_;
  std::size_t done_ = 0;
};

}  // namespace

BodySource::BodySource() : use_(std::make_shared<Use>()) {}
BodySource::BodySource(const BodySource& /*other*/) : BodySource() {}
BodySource::~BodySource() = default;

std::shared_ptr<BodySource> fileBody(int descriptor, std::optional<Error>* error) {
  auto content = core::FileContent::make(descriptor, error);
  return content ? std::make_shared<FileBody>(std::move(content)) : nullptr;
}

std::shared_ptr<BodySource> fileBody(const std::filesystem::path& file,
                                     std::optional<Error>* error) {
  // Opening a pipe would wait for whoever writes into it.
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    storeError(error, Error(NSPOSIXErrorDomain, errno));
    return nullptr;
  }
  auto source = fileBody(descriptor, error);
  close(descriptor);
  return source;
}

}  // namespace kvl
