/// @file
/// The file of a form input.
#pragma once

#include <local/platform/Atomic.h>
#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/Object.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// A file to be sent with a form. It can be the value of an input. The properties are atomic, each
/// on its own; any thread may use one at any time.
class KVL_EXPORT KVLInputFile final : public kvl::Object {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// `newWithFilename:contentType:data:` A new file object, shared by reference.
  ///
  /// @param filename the name sent with the part; absent and empty send none
  /// @param contentType the media type; absent and empty become "application/octet-stream"
  /// @param data the content
  [[nodiscard]] static std::shared_ptr<KVLInputFile> newWithFilename(
      std::optional<std::string> filename, std::optional<std::string> contentType,
      std::optional<kvl::Data> data);

  /// Use `newWithFilename`.
  KVLInputFile(Private, std::optional<std::string> filename, std::optional<std::string> contentType,
               std::optional<kvl::Data> data);
  ~KVLInputFile() override;

  /// @name Properties
  /// The setters store what they are given.
  /// @{
  [[nodiscard]] std::optional<std::string> filename() const;
  void setFilename(std::optional<std::string> filename);
  [[nodiscard]] std::optional<std::string> contentType() const;
  void setContentType(std::optional<std::string> contentType);
  [[nodiscard]] std::optional<kvl::Data> data() const;
  void setData(std::optional<kvl::Data> data);
  /// @}

  /// "KVLInputFile"
  [[nodiscard]] std::string_view typeName() const noexcept override;
  /// Name, media type and size; never the content.
  [[nodiscard]] std::string description() const override;

 private:
  kvl::Atomic<std::optional<std::string>> filename_;
  kvl::Atomic<std::optional<std::string>> contentType_;
  kvl::Atomic<std::optional<kvl::Data>> data_;
};
