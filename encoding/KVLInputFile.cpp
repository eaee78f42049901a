#include "platform/core/FileContent.h"

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
      content_(Content{std::move(data), nullptr}) {}

std::shared_ptr<KVLInputFile> KVLInputFile::newWithDescriptor(
    std::optional<std::string> filename, std::optional<std::string> contentType, int descriptor,
    std::optional<kvl::Error>* error) {
  auto content = kvl::core::FileContent::make(descriptor, error);
  if (!content) return nullptr;
  auto file = newWithFilename(std::move(filename), std::move(contentType), std::nullopt);
  file->content_.set({std::nullopt, std::move(content)});
  return file;
}

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
  const Content content = content_.get();
  if (!content.file) return content.data;
  std::string text;
  if (content.file->appendTo(text)) return std::nullopt;
  return kvl::Data::adoptingText(std::move(text));
}
void KVLInputFile::setData(std::optional<kvl::Data> data) {
  content_.set({std::move(data), nullptr});
}

std::shared_ptr<const kvl::core::FileContent> KVLInputFile::fileContent() const {
  return content_.get().file;
}

std::string_view KVLInputFile::typeName() const noexcept {
  return "KVLInputFile";
}

std::string KVLInputFile::description() const {
  const Content content = content_.get();
  std::optional<std::string> size;
  if (content.file) size = std::to_string(content.file->size()) + " bytes";
  if (content.data) size = std::to_string(content.data->size()) + " bytes";
  return kvl::format("<%@ %@, %@, %@>", typeName(), filename(), contentType(), size);
}
