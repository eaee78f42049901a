/// @file
/// Documents and images, fetched through a session.
#pragma once

#include <local/KVLEncodingRoot.h>
#include <local/KVLSession.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/Export.h>
#include <local/platform/Geometry.h>
#include <local/platform/Image.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace KVLEncoding {

/// Why somebody waits, for the log.
class WaitReason {
 public:
  /// @param text becomes part of a log line as it is
  explicit WaitReason(std::string_view text) : text_(text) {}
  [[nodiscard]] const std::string& text() const noexcept { return text_; }  ///< as it was given

 private:
  std::string text_;
};

/// Receives a document, the response and an error, each possibly none. Called once.
using DocumentHandler =
    std::function<void(std::optional<kvl::Value> document, kvl::URLResponseRef response,
                       std::optional<kvl::Error> error)>;

/// Receives an image, the response and an error, each possibly none. Called once.
using ImageHandler =
    std::function<void(std::shared_ptr<kvl::Image> image, kvl::URLResponseRef response,
                       std::optional<kvl::Error> error)>;

/// `waitForSemaphore:reason:` Waits for a semaphore without stopping the host's main loop.
///
/// **On the main thread** it serves GLib's default main context until the semaphore is free, with
/// no limit of time, and writes "WARNING: waiting for semaphore on main thread: %@" to the log.
/// That is a nested event loop: whatever the host has queued runs inside this call, its own timers
/// and input handlers included. Prefer the asynchronous fetches. A semaphore that is free already
/// is taken without serving anything. While another thread owns the context, that thread serves it
/// and this call waits for the semaphore; it takes over soon after the owner lets go.
///
/// **On any other thread** it waits at most 5 s. Waiting for a fetch on the HTTPS session object's
/// own queue, as inside another request's handler, always ends that way. While the process exits
/// that limit holds for the main thread, too, and fetches that wait end at once.
///
/// @return none when the semaphore was obtained; else `NSPOSIXErrorDomain`, 60.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Error> waitForSemaphore(kvl::Semaphore& semaphore,
                                                                    const WaitReason& reason);

/// `jsonFromSession:withRelativePath:completionHandler:` Fetches a document.
///
/// @param completionHandler called on the main queue with the document (none for a body that is
///   `null` or cannot be decoded), the response and the decoding error. An answer without a body,
///   as with status 204, is the error "korvale.vandrel.encoding.json", 1; a document of more values
///   than the session's configuration allows is `NSCocoaErrorDomain`, 3840. An error of the
///   transfer comes at once on the thread on which the request completed: the HTTPS session
///   object's queue, or the caller's thread when the session is not established. The status code is
///   not judged. Without a handler errors are written to the log as "request error: %@".
/// @param options with a queue the handler runs there, whatever the outcome, and never before this
///   returns.
/// @return a handle of the fetch, to cancel it or to follow it; nobody need keep it. Cancelled, the
///   handler gets `NSURLErrorCancelled` where an error of the transfer or a document would come.
KVL_EXPORT kvl::Exchange jsonFromSession(KVLSession& session, const RelativePath& relativePath,
                                         DocumentHandler completionHandler,
                                         const kvl::RequestOptions& options = {});

/// `jsonFromSession:withRelativePath:reason:error:` The same, waiting as `waitForSemaphore` does.
///
/// @param reason for the reader of the caller's code; what is logged names the path.
/// @param error receives the wait's time-out. The fetch's own error is never reported here: a
///   failed fetch returns none and leaves the slot as it is. An answer that comes after the time
///   has run out is dropped.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Value> jsonFromSession(
    KVLSession& session, const RelativePath& relativePath, const WaitReason& reason,
    std::optional<kvl::Error>* error = nullptr);

namespace detail {
KVL_EXPORT void reportWrongDocument(const std::optional<kvl::Value>& document,
                                    const std::optional<kvl::Error>& error,
                                    std::string_view required, const RelativePath& relativePath);

// The document if it is a `T`; else none, and the reason is in the log.
template <class T>
[[nodiscard]] std::optional<T> requiredObject(const std::optional<kvl::Value>& document,
                                              const std::optional<kvl::Error>& error,
                                              const RelativePath& relativePath) {
  if (!error && document) {
    if (auto object = document->template as<T>()) return object;
  }
  reportWrongDocument(document, error, kvl::typeNameOf<T>(), relativePath);
  return std::nullopt;
}
}  // namespace detail

/// `requireObjectOfClass:fromSession:withRelativePath:completionHandler:` Fetches a document that
/// must be a `T`: `kvl::String`, `Number`, `Date`, `Data`, `Array` or `Dictionary`.
///
/// @param completionHandler called on the main queue, and only with a document of that type.
///   Anything else, a cancellation too, is written to the log as "request error: %@": ask
///   `jsonFromSession` to hear of failures.
/// @param options as for the document
/// @return as for the document
template <class T>
kvl::Exchange requireObjectOfClass(KVLSession& session, const RelativePath& relativePath,
                                   std::function<void(T)> completionHandler,
                                   const kvl::RequestOptions& options = {}) {
  return jsonFromSession(
      session, relativePath,
      [relativePath, handler = std::move(completionHandler)](
          const std::optional<kvl::Value>& document, const kvl::URLResponseRef&,
          const std::optional<kvl::Error>& error) {
        const auto object = detail::requiredObject<T>(document, error, relativePath);
        if (object && handler) handler(*object);
      },
      options);
}

/// `imageFromSession:withRelativePath:size:completionHandler:` Fetches an image.
///
/// The image is scaled to `size` (see `KVLExtensions::scaleImage`) when both its measures are
/// greater than 0. A response whose "Content-Type" has "role" as its first parameter, with a value
/// that contains "template", makes a template image; on systems before 10.15 only if the field's
/// name is written exactly so.
///
/// @param completionHandler called on the main queue, errors included. A body that is no image
///   brings neither image nor error, and a line in the log that says why. Without a handler errors
///   are written to the log as "request error: %@". Images may come in another order than they were
///   asked for.
/// @param options as for the document. An empty answer that is to be an error is
///   `KVLEncodingErrorDomain`, 204.
/// @return as for the document. A cancelled image is not decoded.
KVL_EXPORT kvl::Exchange imageFromSession(KVLSession& session, const RelativePath& relativePath,
                                          kvl::Size size, ImageHandler completionHandler,
                                          const kvl::RequestOptions& options = {});

/// `imageFromSession:withRelativePath:size:reason:error:` The same, waiting as `waitForSemaphore`
/// does; reason and error as for the document.
[[nodiscard]] KVL_EXPORT std::shared_ptr<kvl::Image> imageFromSession(
    KVLSession& session, const RelativePath& relativePath, kvl::Size size, const WaitReason& reason,
    std::optional<kvl::Error>* error = nullptr);

}  // namespace KVLEncoding
