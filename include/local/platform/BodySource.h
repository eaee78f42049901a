/// @file
/// Bodies of requests that are read while they are sent.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

namespace kvl {
namespace urlloading {
class BodyFeed;
}

/// Where the body of a request comes from when it is not in memory. Used by one task at a time,
/// until its handler is called, and from its first byte on: a source that another task has used is
/// rewound before it is read. A task whose source another one has begun to read gets no more of it
/// and fails with `NSURLErrorRequestBodyStreamExhausted`.
///
/// `read` and `rewind` come on worker threads, one call at a time, with none of the framework's
/// locks held, and may wait for as long as they like: the request's idle time-out stands still
/// meanwhile, its total one runs on. A task that ends during a call does not wait
/// for it, and makes no other.
class KVL_EXPORT BodySource {
 public:
  /// A source that no task has used.
  BodySource();
  /// A copy is a source of its own, which no task has used.
  BodySource(const BodySource& other);
  BodySource& operator=(const BodySource& other) = delete;
  virtual ~BodySource();

  /// The number of bytes from the first on; absent when it is not known, and the body is then sent
  /// in chunks. Asked once, when the request is sent, on the loader's thread: it must answer
  /// without waiting.
  [[nodiscard]] virtual std::optional<std::uint64_t> length() const = 0;

  /// Fills the front of `room`, which is not empty, and returns how many bytes; 0 is the end. An
  /// error ends the request with that error. Fewer bytes than `length` said end it with
  /// `NSURLErrorRequestBodyStreamExhausted`; what is more is not read.
  [[nodiscard]] virtual std::size_t read(std::span<std::uint8_t> room,
                                         std::optional<Error>* error) = 0;

  /// Goes back to the first byte, for another task or a redirect that repeats the body. False when
  /// that cannot be done: the request then fails with `NSURLErrorRequestBodyStreamExhausted`.
  [[nodiscard]] virtual bool rewind() = 0;

 private:
  friend class urlloading::BodyFeed;
  struct Use;
  std::shared_ptr<Use> use_;
};

/// A source of what a regular file holds now. Null with an error in `NSPOSIXErrorDomain` when it
/// cannot be opened or is no regular file. A file that becomes shorter meanwhile ends the request
/// with `NSFileReadUnknownError`.
[[nodiscard]] KVL_EXPORT std::shared_ptr<BodySource> fileBody(
    const std::filesystem::path& file, std::optional<Error>* error = nullptr);
/// The same from the offset of an open file's descriptor, of which it keeps a duplicate; the offset
/// stays where it is.
[[nodiscard]] KVL_EXPORT std::shared_ptr<BodySource> fileBody(
    int descriptor, std::optional<Error>* error = nullptr);

}  // namespace kvl
