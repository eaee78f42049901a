#include <local/KVLExtensions.h>
#include <local/KVLInputFile.h>
#include <local/platform/Log.h>

#include <utility>

namespace {

std::string octetStreamUnlessSet(std::optional<std::string> contentType) {
  if (contentType && !contentType->empty()) return *std::move(contentType);
  return std::string(KVLExtensions::KVLExtensionsContentTypeOctetStream);
}

}  // namespace

std::shared_ptr<KVLInputFile> KVLInputFile::newWithFilename(std::optional<std::string> filename,
                                                            std::optional<std::string> contentType,
                                                            std::optional<kvl::Data> data) {
  return std::make_shared<KVLInputFile>(Private{}, std::move(filename), std::move(contentType),
                                        std::move(data));
}

KVLInputFile::KVLInputFile(Private, std::optional<std::string> filename,
                           std::optional<std::string> contentType, std::optional<kvl::Data> data)
    : filename_(std::move(filename)),
      contentType_(octetStreamUnlessSet(std::move(contentType))),
      data_(std::move(data)) {}

KVLInputFile::~KVLInputFile() = default;

std::optional<std::string> KVLInputFile::filename() const {
  return filename_.get();
}
void KVLInputFile::setFilename(std::optional<std::string> filename) {
  filename_.set(std::move(filename));
}

std::optional<std::string> KVLInputFile::contentType() const {
  return contentType_.get();
}
void KVLInputFile::setContentType(std::optional<std::string> contentType) {
  contentType_.set(std::move(contentType));
}

std::optional<kvl::Data> KVLInputFile::data() const {
  return data_.get();
}
void KVLInputFile::setData(std::optional<kvl::Data> data) {
  data_.set(std::move(data));
}

std::string_view KVLInputFile::typeName() const noexcept {
  return "KVLInputFile";
}

std::string KVLInputFile::description() const {
  const auto content = data();
  std::optional<std::string> size;
  if (content) size = std::to_string(content->size()) + " bytes";
  return kvl::format("<%@ %@, %@, %@>", typeName(), filename(), contentType(), size);
}
