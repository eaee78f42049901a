#include "encoding/MultipartParts.h"

#include "platform/core/FileContent.h"

#include <local/KVLEncoding.h>
#include <local/KVLExtensions.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/KVLInputFile.h>
#include <local/platform/Log.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace kvl::encoding {
namespace {

using KVLExtensions::KVLExtensionsContentTypeOctetStream;

Error makeError(std::int64_t code, const Dictionary& userInfo) {
  return {KVLExtensions::KVLExtensionsErrorDomain, code, userInfo};
}

Error missingName() {
  return makeError(404, {{"missing value", "name"}});
}

Error malformedName(const String& name) {
  return makeError(400, {{"malformed name", "contains double quote"}, {"name", name}});
}

// The type is that of the name, not of the value.
Error unsupportedType(const String& name) {
  return makeError(400, {{"unsupported type", "value"}, {"type", Value(name).typeName()}});
}

Error noBoundary() {
  return makeError(400, {{"watchdog", "unable to derive unique boundary"}});
}

std::string disposition(std::string_view name) {
  return kvl::format("Content-Disposition: form-data; name=\"%@\"", name);
}

std::string contentType(std::string_view type) {
  return kvl::format("\nContent-Type: %@", type);
}

// A file as its properties were when its part was made.
MultipartPart filePart(std::string_view name, const KVLInputFile& file) {
  MultipartPart part;
  part.head = disposition(name);
  if (auto filename = file.filename().value_or(""); !filename.empty()) {
    std::ranges::replace(filename, '"', '-');
    part.head += kvl::format("; filename=\"%@\"", filename);
  }
  const auto type = file.contentType().value_or("");
  part.head += contentType(type.empty() ? KVLExtensionsContentTypeOctetStream : type);
  part.head += "\n\n";
  part.openFile = file.fileContent();
  if (part.openFile) return part;
  part.file = file.data().value_or(Data());
  part.content = part.file.text();
  return part;
}

// Its content refers to the data, which the inputs keep alive.
MultipartPart dataPart(std::string_view name, const Value& value) {
  const auto type = contentType(KVLExtensionsContentTypeOctetStream);
  return {disposition(name) + type + "\n\n", value.data()->text(), {}, {}};
}

MultipartPart textPart(std::string_view name, std::string_view content) {
  return {disposition(name) + contentType("text/plain;charset=UTF-8") + "\n\n", content, {}, {}};
}

// The text exists only for this part, so it is kept in the head.
MultipartPart writtenPart(std::string_view name, std::string_view text) {
  auto part = textPart(name, {});
  part.head += text;
  return part;
}

// None for a value that cannot be sent.
std::optional<MultipartPart> partOf(std::string_view name, const Value* value) {
  if (value == nullptr) return MultipartPart{disposition(name) + "\n\n", {}, {}, {}};
  if (const auto text = value->string()) return textPart(name, *text);
  if (const auto number = value->as<Number>()) return writtenPart(name, number->description());
  if (const auto date = value->date())
    return writtenPart(name, KVLExtensions::rfc3339().stringFromDate(*date));
  if (value->kind() == Value::Kind::data) return dataPart(name, *value);
  if (const auto file = std::dynamic_pointer_cast<KVLInputFile>(value->object()))
    return filePart(name, *file);
  return std::nullopt;
}

std::optional<MultipartPart> makePart(const Value& element, std::optional<Error>* error) {
  const auto input = element.dictionary();
  const auto name = KVLEncoding::stringFromDictionary(input, "name");
  if (!name) {
    storeError(error, missingName());
    return std::nullopt;
  }
  if (name->text().find('"') != std::string_view::npos) {
    storeError(error, malformedName(*name));
    return std::nullopt;
  }
  const Value* value = input->find("value");
  auto part = partOf(*name, value);
  if (!part) {
    log(LogCategory::documents, LogLevel::warning,
        "unsupported named value type in HTTP body encoding: %@ = %@", *name, *value);
    storeError(error, unsupportedType(*name));
  }
  return part;
}

std::string drawnFrom(const BoundarySource& source) {
  auto boundary = source();
  assert(boundary.size() == kBoundaryLength);
  return boundary;
}

}  // namespace

std::size_t MultipartPart::size() const noexcept {
  return head.size() + content.size() + (openFile ? openFile->size() : 0);
}

std::optional<std::vector<MultipartPart>> multipartParts(const Array& inputs,
                                                         std::optional<Error>* error) {
  std::vector<MultipartPart> parts;
  parts.reserve(inputs.size());
  for (const auto& input : inputs) {
    auto part = makePart(input, error);
    if (!part) return std::nullopt;
    parts.push_back(*std::move(part));
  }
  return parts;
}

std::optional<std::size_t> multipartSize(const std::vector<MultipartPart>& parts,
                                         std::size_t most) {
  // The two hyphens, the boundary and a line feed.
  constexpr std::size_t kBoundaryLine = kBoundaryLength + 3;
  std::size_t size = kBoundaryLine + 2;
  for (const auto& part : parts) {
    const std::size_t more = part.size() + 1 + kBoundaryLine;
    if (more > most - size) return std::nullopt;
    size += more;
  }
  return size;
}

std::optional<std::string> chooseBoundary(const BoundarySource& source, const PartSearch& occurs,
                                          std::optional<Error>* error) {
  for (int drawn = 1; drawn < kBoundaryDraws; ++drawn) {
    auto boundary = drawnFrom(source);
    std::optional<Error> failure;
    const bool isFound = occurs(boundary, failure);
    if (failure) {
      storeError(error, std::move(failure));
      return std::nullopt;
    }
    if (!isFound) return boundary;
  }
  static_cast<void>(drawnFrom(source));
  storeError(error, noBoundary());
  return std::nullopt;
}

void setMultipartHead(URLRequest& request, const std::string& boundary, std::size_t size) {
  auto& headers = request.headers();
  headers.set("Content-Type", "multipart/form-data; boundary=" + boundary);
  headers.set("Content-Length", std::to_string(size));
  request.setMethod("POST");
}

}  // namespace kvl::encoding
