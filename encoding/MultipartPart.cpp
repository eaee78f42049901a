#include "encoding/MultipartPart.h"

#include <local/KVLEncoding.h>
#include <local/KVLExtensions.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/KVLInputFile.h>
#include <local/platform/Log.h>

#include <algorithm>
#include <memory>
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

std::string disposition(std::string_view name) {
  return format("Content-Disposition: form-data; name=\"%@\"", name);
}

std::string contentType(std::string_view type) {
  return format("\nContent-Type: %@", type);
}

// A file as its properties were when its part was made.
MultipartPart filePart(std::string_view name, const KVLInputFile& file) {
  MultipartPart part;
  part.head = disposition(name);
  if (auto filename = file.filename().value_or(""); !filename.empty()) {
    std::ranges::replace(filename, '"', '-');
    part.head += format("; filename=\"%@\"", filename);
  }
  const auto type = file.contentType().value_or("");
  part.head += contentType(type.empty() ? KVLExtensionsContentTypeOctetStream : type);
  part.head += "\n\n";
  part.file = file.data().value_or(Data());
  part.content = part.file.text();
  return part;
}

// Of a value that the inputs hold.
MultipartPart dataPart(std::string_view name, const Value& value) {
  const auto type = contentType(KVLExtensionsContentTypeOctetStream);
  return {disposition(name) + type + "\n\n", value.data()->text(), {}};
}

MultipartPart textPart(std::string_view name, std::string_view content) {
  return {disposition(name) + contentType("text/plain;charset=UTF-8") + "\n\n", content, {}};
}

// A text made for the part stands with its head.
MultipartPart writtenPart(std::string_view name, std::string_view text) {
  auto part = textPart(name, {});
  part.head += text;
  return part;
}

// None for a value that cannot be sent.
std::optional<MultipartPart> partOf(std::string_view name, const Value* value) {
  if (value == nullptr) return MultipartPart{disposition(name) + "\n\n", {}, {}};
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
    log("unsupported named value type in HTTP body encoding: %@ = %@", *name, *value);
    storeError(error, unsupportedType(*name));
  }
  return part;
}

}  // namespace

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

}  // namespace kvl::encoding
