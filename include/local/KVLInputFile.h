/// @file
/// The file of a form input.
#pragma once

#include <local/platform/Atomic.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Object.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvl::core {
class FileContent;
}

/// A file to be sent with a form. It can be the value of an input. The properties are atomic, each
/// on its own; any thread may use one at any time.
class KVL_EXPORT KVLInputFile final : public kvl::Object {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// `newWithFilename:contentType:data:` A new file object, shared by reference.
  ///
  /// @param filename the name sent with the part; absent and empty send none. Double quotes in it
  ///   are sent as hyphens, everything else as it is: a line feed ends the line, and what follows
  ///   becomes a line of the part's head, or of its content after an empty one. File systems allow
  ///   line ends in names, so whoever takes names from one refuses those.
  /// @param contentType the media type; absent and empty become "application/octet-stream". It is
  ///   sent as it is, too
  /// @param data the content
  [[nodiscard]] static std::shared_ptr<KVLInputFile> newWithFilename(
      std::optional<std::string> filename, std::optional<std::string> contentType,
      std::optional<kvl::Data> data);

  /// A new file object with the content of an open file, which is read only when it is needed: a
  /// form reads it straight into the body of its request, or while it is sent
  /// (`KVLEncoding::FormOptions::streamsFiles`), and no other copy is kept. Any thread.
  ///
  /// @param filename, contentType as above
  /// @param descriptor of a regular file, open for reading: its content from the descriptor's
  ///   present offset to the file's present end. A duplicate is kept until `setData` or the
  ///   object's end; the caller's descriptor stays the caller's. Nobody should write to the file
  ///   meanwhile: a form whose file has become shorter is not sent (`NSCocoaErrorDomain`,
  ///   `NSFileReadUnknownError`), and neither is one that no memory holds (`NSPOSIXErrorDomain`,
  ///   ENOMEM)
  /// @param error `NSPOSIXErrorDomain` with the system's code, EINVAL for what is no regular file
  /// @return null with an error
  [[nodiscard]] static std::shared_ptr<KVLInputFile> newWithDescriptor(
      std::optional<std::string> filename, std::optional<std::string> contentType, int descriptor,
      std::optional<kvl::Error>* error = nullptr);

  /// Use `newWithFilename`.
  KVLInputFile(Private, std::optional<std::string> filename, std::optional<std::string> contentType,
               std::optional<kvl::Data> data);
  ~KVLInputFile() override;

  /// @name Properties
  /// The setters store what they are given.
  /// @{

  /// The file's name for the service; absent for none.
  [[nodiscard]] std::optional<std::string> filename() const;
  /// Nothing of it is escaped when it is sent, see `KVLEncodingForm.h`.
  void setFilename(std::optional<std::string> filename);
  /// A media type such as "image/png"; "application/octet-stream" where none was given.
  [[nodiscard]] std::optional<std::string> contentType() const;
  /// As for the name, nothing of it is escaped when it is sent.
  void setContentType(std::optional<std::string> contentType);
  /// Of an open file, the whole content is read at each call; absent when it cannot be read.
  [[nodiscard]] std::optional<kvl::Data> data() const;
  /// Replaces what is sent; an open file is let go of.
  void setData(std::optional<kvl::Data> data);
  /// @}

  /// "KVLInputFile"
  [[nodiscard]] std::string_view typeName() const noexcept override;
  /// Name, media type and size; never the content.
  [[nodiscard]] std::string description() const override;

  /// The open file that the content is still in, or null; for the framework itself.
  [[nodiscard]] KVL_INTERNAL std::shared_ptr<const kvl::core::FileContent> fileContent() const;

 private:
  // One of the two at most.
  struct Content {
    std::optional<kvl::Data> data;
    std::shared_ptr<const kvl::core::FileContent> file;
  };

  kvl::Atomic<std::optional<std::string>> filename_;
  kvl::Atomic<std::optional<std::string>> contentType_;
  kvl::Atomic<Content> content_;
};
