// Makes the body of a form request: a part for each input, then all parts in one buffer, separated
// by a boundary that occurs in none of them.
#include "encoding/MultipartBody.h"

#include "encoding/Boundary.h"
#include "platform/core/FileContent.h"
#include "platform/core/LargeMemory.h"

#include <local/KVLEncoding.h>
#include <local/KVLExtensions.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/KVLInputFile.h>
#include <local/platform/Data.h>
#include <local/platform/Log.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::encoding {
namespace {

using KVLExtensions::KVLExtensionsContentTypeOctetStream;

constexpr std::string_view kHyphens = "--";

// The bytes of one part are those of `head`, those of `content` and those of `openFile`.
struct MultipartPart {
  std::string head;          // the header lines and the empty line
  std::string_view content;  // what the input holds, or `file`
  Data file;                 // kept here because the input's may be replaced meanwhile
  std::shared_ptr<const core::FileContent> openFile;

  [[nodiscard]] std::size_t size() const noexcept {
    return head.size() + content.size() + (openFile ? openFile->size() : 0);
  }
};

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

// One part per input, in order, or the error of the first input that cannot be sent. The parts
// refer to the inputs.
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

// The body in its one buffer. Copying whole parts and searching the copy afterwards costs less than
// going over both in blocks that fit the processor's cache.
class Assembly {
 public:
  // Once. An error when an open file cannot be read, or when no memory holds it all.
  [[nodiscard]] std::optional<Error> fill(const std::vector<MultipartPart>& parts,
                                          std::string_view boundary) {
    if (auto error = reserve(parts)) return error;
    appendBoundary(boundary);
    for (const auto& part : parts) {
      body_ += '\n';
      body_ += part.head;
      body_ += part.content;
      if (part.openFile)
        if (auto error = part.openFile->appendTo(body_)) return error;
      body_ += '\n';
      appendBoundary(boundary);
    }
    body_ += kHyphens;
    body_ += '\n';
    return std::nullopt;
  }

  void replaceBoundary(std::string_view boundary) {
    for (const auto place : places_) body_.replace(place, kBoundaryLength, boundary);
  }

  // Whether the boundary occurs in a part.
  [[nodiscard]] bool boundaryOccurs() const {
    const auto body = std::string_view(body_);
    const auto boundary = body.substr(places_.front(), kBoundaryLength);
    for (std::size_t i = 0; i + 1 < places_.size(); ++i) {
      const std::size_t begin = places_[i] + kBoundaryLength + 1;
      const std::size_t end = places_[i + 1] - kHyphens.size() - 1;
      if (occursIn(body.substr(begin, end - begin), boundary)) return true;
    }
    return false;
  }

  [[nodiscard]] std::string take() && { return std::move(body_); }

 private:
  [[nodiscard]] std::optional<Error> reserve(const std::vector<MultipartPart>& parts) {
    constexpr std::size_t kBoundaryLine = kHyphens.size() + kBoundaryLength + 1;
    std::size_t size = kBoundaryLine + kHyphens.size();
    for (const auto& part : parts) {
      const std::size_t more = part.size() + 1 + kBoundaryLine;
      if (more > body_.max_size() - size) return Error(NSPOSIXErrorDomain, ENOMEM);
      size += more;
    }
    if (auto error = core::reserveMore(body_, size)) return error;
    core::preferLargePages(body_.data(), body_.capacity());
    places_.reserve(parts.size() + 1);
    return std::nullopt;
  }

  void appendBoundary(std::string_view boundary) {
    body_ += kHyphens;
    places_.push_back(body_.size());
    body_ += boundary;
  }

  std::string body_;
  std::vector<std::size_t> places_;  // where the boundary stands
};

struct MultipartBody {
  std::string boundary;
  std::string bytes;
};

std::string drawnFrom(const BoundarySource& source) {
  auto boundary = source();
  assert(boundary.size() == kBoundaryLength);
  return boundary;
}

// None with an error when every boundary that may be taken occurs in some part, or when an open
// file cannot be read.
std::optional<MultipartBody> assemble(const std::vector<MultipartPart>& parts,
                                      const BoundarySource& source, std::optional<Error>* error) {
  auto boundary = drawnFrom(source);
  Assembly assembly;
  if (auto fault = assembly.fill(parts, boundary)) {
    storeError(error, std::move(fault));
    return std::nullopt;
  }
  int drawn = 1;
  while (assembly.boundaryOccurs() && drawn < kBoundaryDraws) {
    boundary = drawnFrom(source);
    assembly.replaceBoundary(boundary);
    ++drawn;
  }
  if (drawn == kBoundaryDraws) {
    storeError(error, noBoundary());
    return std::nullopt;
  }
  return MultipartBody{std::move(boundary), std::move(assembly).take()};
}

void setBody(URLRequest& request, MultipartBody body) {
  auto& headers = request.headers();
  headers.set("Content-Type", "multipart/form-data; boundary=" + body.boundary);
  headers.set("Content-Length", std::to_string(body.bytes.size()));
  request.setMethod("POST");
  request.setBody(Data::adoptingText(std::move(body.bytes)));
}

}  // namespace

std::optional<Error> writeMultipartBody(URLRequest& request, const Array& inputs,
                                        const BoundarySource& source) {
  if (inputs.empty()) return std::nullopt;
  std::optional<Error> error;
  const auto parts = multipartParts(inputs, &error);
  if (!parts) return error;
  auto body = assemble(*parts, source, &error);
  if (!body) return error;
  setBody(request, *std::move(body));
  return std::nullopt;
}

}  // namespace kvl::encoding
