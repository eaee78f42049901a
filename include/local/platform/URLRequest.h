/// @file
/// Requests and responses.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/URL.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {

/// Header fields in the order in which they were set or received. Names are compared without
/// regard to ASCII case (RFC 9110, 5.1).
class KVL_EXPORT HeaderFields {
 public:
  using Field = std::pair<std::string, std::string>;

  /// The value of the first field with this name, or absent.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view name) const noexcept;
  /// Sets the field, replacing every field with this name.
  void set(std::string_view name, std::string_view value);
  /// Appends a field, whatever is there.
  void append(std::string_view name, std::string_view value);
  void remove(std::string_view name);
  void clear() noexcept { fields_.clear(); }

  [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
  [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
  [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
  [[nodiscard]] auto end() const noexcept { return fields_.end(); }
  friend bool operator==(const HeaderFields&, const HeaderFields&) = default;

 private:
  std::vector<Field> fields_;
};

/// Whether `name` is a token and `value` holds no CR, LF or NUL (RFC 9110, 5.1 and 5.5), so that
/// the field can be sent.
[[nodiscard]] KVL_EXPORT bool isSendableHeaderField(std::string_view name,
                                                    std::string_view value) noexcept;

/// What a request's answer is meant for, which says how large it may be
/// (`URLSessionConfiguration`).
enum class ContentKind {
  data,         ///< anything
  document,     ///< decoded as a whole
  image,        ///< decoded as a picture
  eventStream,  ///< read as it arrives; no content encoding is offered or accepted
};

/// An HTTP request. A plain value: copies are independent.
class KVL_EXPORT URLRequest {
 public:
  /// The idle time-out of a request that sets none takes the session configuration's.
  explicit URLRequest(URL url) : url_(std::move(url)) {}

  /// A request for the URL with this text. A text that is no URL makes a request without one,
  /// which keeps the text and fails with `NSURLErrorBadURL` when it is sent; nothing reaches the
  /// wire.
  explicit URLRequest(std::string_view urlText);

  /// The URL, or absent when the request was made from a text that is none.
  [[nodiscard]] const std::optional<URL>& url() const noexcept { return url_; }
  void setURL(URL url) {
    url_ = std::move(url);
    invalidURLText_.clear();
  }
  /// The URL's text, or the text that is no URL.
  [[nodiscard]] std::string_view urlText() const noexcept {
    return url_ ? std::string_view(url_->absoluteString()) : invalidURLText_;
  }

  /// An HTTP method (RFC 9110, 9); "GET" by default.
  [[nodiscard]] const std::string& method() const noexcept { return method_; }
  void setMethod(std::string_view method) { method_ = method; }

  /// Fields that HTTP forbids (see `isSendableHeaderField`) make the request fail with
  /// `NSPOSIXErrorDomain`, code 22 (`EINVAL`), when it is sent; nothing reaches the wire.
  [[nodiscard]] const HeaderFields& headers() const noexcept { return headers_; }
  [[nodiscard]] HeaderFields& headers() noexcept { return headers_; }

  [[nodiscard]] const std::optional<Data>& body() const noexcept { return body_; }
  void setBody(std::optional<Data> body) { body_ = std::move(body); }

  /// The longest silence allowed between two steps of the exchange, connecting included; absent
  /// takes the session configuration's.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> timeoutInterval() const noexcept {
    return timeoutInterval_;
  }
  void setTimeoutInterval(std::chrono::nanoseconds interval) { timeoutInterval_ = interval; }

  /// `ContentKind::data` by default.
  [[nodiscard]] ContentKind contentKind() const noexcept { return contentKind_; }
  void setContentKind(ContentKind kind) noexcept { contentKind_ = kind; }

 private:
  std::optional<URL> url_;
  std::string invalidURLText_;
  std::string method_ = "GET";
  HeaderFields headers_;
  std::optional<Data> body_;
  std::optional<std::chrono::nanoseconds> timeoutInterval_;
  ContentKind contentKind_ = ContentKind::data;
};

/// A response's head. Immutable once handed out.
struct URLResponse {
  URL url;                            ///< where the answer came from, after redirects
  std::optional<int> httpStatusCode;  ///< absent when the response is not an HTTP response
  HeaderFields headers;
  /// 1.0, 1.1 or 2.0 as 10, 11 or 20; 0 when not an HTTP response.
  int httpVersion = 0;

  [[nodiscard]] bool isHTTP() const noexcept { return httpStatusCode.has_value(); }
};
using URLResponseRef = std::shared_ptr<const URLResponse>;

/// `localizedStringForStatusCode:` The reason phrase of an HTTP status code, in English: the name
/// in IANA's registry (RFC 9110, 15), for a code without one the name of its class, such as "Server
/// Error", and "Unknown Status" outside 100 to 599. Any thread.
[[nodiscard]] KVL_EXPORT std::string_view localizedStringForStatusCode(
    std::int64_t statusCode) noexcept;

}  // namespace kvl
