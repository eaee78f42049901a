/// @file
/// Whole documents ("roots"), sent and received.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/Export.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace KVLEncoding {

/// A URL of the service as text, usually relative to its base URL.
class RelativePath {
 public:
  /// Takes any text; one that is no URL fails with `NSURLErrorBadURL` when a request is made of it.
  explicit RelativePath(std::string_view text) : text_(text) {}
  [[nodiscard]] const std::string& text() const noexcept { return text_; }  ///< as it was given

 private:
  std::string text_;
};

/// Receives the outcome of a submission: the decoded root, the response and an error, each possibly
/// none. The status code is not judged: look at the response. Called once.
using RootHandler = std::function<void(std::optional<kvl::Value> root, kvl::URLResponseRef response,
                                       std::optional<kvl::Error> error)>;

/// `submit:relativePath:session:completionHandler:` Posts a root and decodes the answer.
///
/// A dictionary or an array that JSON can hold goes as "application/json", in compact form;
/// otherwise a root that a property list can hold (dates and data, but no null; a bare string,
/// number, date or data too) goes as "application/x-plist", a binary property list 1.0. What
/// neither can hold is not sent: the error is "korvale.vandrel.encoding.root", 1.
///
/// @param completionHandler called at once on the caller's thread when the root cannot be encoded
///   or the session is not established, else on the HTTPS session object's serial queue. A body
///   that cannot be decoded, or that holds more values than the session's configuration allows,
///   brings none, the response and the decoder's error; an answer without a body, as with status
///   204, and a body of `null` bring none and no error. Without a handler, failures and every
///   status of 300 and more are written to the log.
/// @param options with a queue the handler runs there, whatever the outcome, and never before this
///   returns. An empty answer that is to be an error is "korvale.vandrel.encoding.json", 1.
/// @return a handle of the submission, to cancel it or to follow it; nobody need keep it. When it
///   has been cancelled, the handler gets `NSURLErrorCancelled` in the place of the root, and the
///   service may have taken what was sent.
KVL_EXPORT kvl::Exchange submit(const kvl::Value& root, const RelativePath& relativePath,
                                KVLSession& session, RootHandler completionHandler = nullptr,
                                const kvl::RequestOptions& options = {});

/// `setHeaderToAcceptRoot:` Sets the field "Accept" to "application/json", replacing what is there.
/// The answer may then be as large as the session's configuration allows documents to be.
KVL_EXPORT void setHeaderToAcceptRoot(kvl::URLRequest& request);

/// `rootFromResponse:withBody:error:` Decodes a body as JSON (RFC 8259), a bare string, number or
/// boolean included. The response is not examined.
///
/// @param error receives none, or: "korvale.vandrel.encoding.json", 1, for no body; the JSON
///   parser's `NSCocoaErrorDomain`, 3840, with the reason and the position. A body of no bytes is
///   one that cannot be parsed, and one of more than 8 Mi values (the usual
///   `maximumDocumentCells`) is given up.
/// @return none for an error and for the document `null`. Any thread.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Value> rootFromResponse(
    const kvl::URLResponseRef& response, const std::optional<kvl::Data>& body,
    std::optional<kvl::Error>* error = nullptr);

}  // namespace KVLEncoding
