/// @file
/// Requests and responses.
#pragma once

#include <local/platform/BodySource.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
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
  /// A name, as it was written, and its value.
  using Field = std::pair<std::string, std::string>;

  /// The value of the first field with this name, or absent.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view name) const noexcept;
  /// Sets the field, replacing every field with this name.
  void set(std::string_view name, std::string_view value);
  /// Appends a field, whatever is there.
  void append(std::string_view name, std::string_view value);
  /// Removes every field with this name.
  void remove(std::string_view name);
  /// Removes all fields.
  void clear() noexcept { fields_.clear(); }

  /// How many fields there are, each of several with one name counted.
  [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
  /// Whether there is no field.
  [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
  /// The first field; iterators hold until a field is changed.
  [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
  /// After the last field.
  [[nodiscard]] auto end() const noexcept { return fields_.end(); }
  /// The same fields in the same order, spelled alike.
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

/// Which of the requests that wait for a connection to one host goes first: the higher one, and
/// among equals the one that came first. A low one may wait for as long as others come.
enum class RequestPriority : std::uint8_t {
  low,    ///< after all others
  usual,  ///< in the order in which they came
  high,   ///< before all others
};

/// An HTTP request. A plain value: copies are independent, but share a body's source.
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
  /// Replaces the URL, also of a request made from a text that is none.
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
  /// Stored as it is; one that is no token of HTTP fails when the request is sent.
  void setMethod(std::string_view method) { method_ = method; }

  /// Fields that HTTP forbids (see `isSendableHeaderField`) make the request fail with
  /// `NSPOSIXErrorDomain`, code 22 (`EINVAL`), when it is sent; nothing reaches the wire.
  [[nodiscard]] const HeaderFields& headers() const noexcept { return headers_; }
  /// To set fields. Valid while this object lives.
  [[nodiscard]] HeaderFields& headers() noexcept { return headers_; }

  /// A body in memory. Setting it replaces a source.
  [[nodiscard]] const std::optional<Data>& body() const noexcept { return body_; }
  /// None sends no body.
  void setBody(std::optional<Data> body) {
    body_ = std::move(body);
    bodySource_.reset();
  }

  /// A body that is read while it is sent, always over HTTP/1.1; null by default. Setting it
  /// replaces a body in memory. Only one task at a time may use a source.
  [[nodiscard]] const std::shared_ptr<BodySource>& bodySource() const noexcept {
    return bodySource_;
  }
  /// Null sends no body.
  void setBodySource(std::shared_ptr<BodySource> source) {
    bodySource_ = std::move(source);
    body_.reset();
  }

  /// The longest silence allowed between two steps of the exchange, connecting included; absent
  /// takes the session configuration's.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> timeoutInterval() const noexcept {
    return timeoutInterval_;
  }
  /// From the task's start on, instead of the session configuration's.
  void setTimeoutInterval(std::chrono::nanoseconds interval) { timeoutInterval_ = interval; }

  /// The longest time from the task's start to its end, redirects included, of event streams, too.
  /// Where the session configuration allows less, that holds.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> totalTimeout() const noexcept {
    return totalTimeout_;
  }
  /// From the task's start on.
  void setTotalTimeout(std::chrono::nanoseconds timeout) { totalTimeout_ = timeout; }

  /// `RequestPriority::usual` by default. Over HTTP/2 the server is told as well.
  [[nodiscard]] RequestPriority priority() const noexcept { return priority_; }
  /// Counts when a task is made of the request.
  void setPriority(RequestPriority priority) noexcept { priority_ = priority; }

  /// `ContentKind::data` by default.
  [[nodiscard]] ContentKind contentKind() const noexcept { return contentKind_; }
  /// Says which limit of the configuration bounds the answer's body.
  void setContentKind(ContentKind kind) noexcept { contentKind_ = kind; }

 private:
  std::optional<URL> url_;
  std::string invalidURLText_;
  std::string method_ = "GET";
  HeaderFields headers_;
  std::optional<Data> body_;
  std::shared_ptr<BodySource> bodySource_;
  std::optional<std::chrono::nanoseconds> timeoutInterval_;
  std::optional<std::chrono::nanoseconds> totalTimeout_;
  ContentKind contentKind_ = ContentKind::data;
  RequestPriority priority_ = RequestPriority::usual;
};

/// A response's head. Immutable once handed out.
struct URLResponse {
  URL url;                            ///< where the answer came from, after redirects
  std::optional<int> httpStatusCode;  ///< absent when the response is not an HTTP response
  HeaderFields headers;               ///< of the last answer, as the server wrote them
  /// 1.0, 1.1 or 2.0 as 10, 11 or 20; 0 when not an HTTP response.
  int httpVersion = 0;

  /// Whether there is a status code.
  [[nodiscard]] bool isHTTP() const noexcept { return httpStatusCode.has_value(); }
};
/// Null where no answer has come.
using URLResponseRef = std::shared_ptr<const URLResponse>;

/// `localizedStringForStatusCode:` The reason phrase of an HTTP status code, in English: the name
/// in IANA's registry (RFC 9110, 15), for a code without one the name of its class, such as "Server
/// Error", and "Unknown Status" outside 100 to 599. Any thread.
[[nodiscard]] KVL_EXPORT std::string_view localizedStringForStatusCode(
    std::int64_t statusCode) noexcept;

/// What a request came to, in one line for a person: "404 Not Found from /path" of an answer, the
/// error's text where there is one, and "No answer" where there is neither. An error beside an
/// answer that is no success (300 and above) follows from it, and the answer is what counts. Any
/// thread.
[[nodiscard]] KVL_EXPORT std::string outcomeText(const URLResponseRef& response,
                                                 const std::optional<Error>& error);

}  // namespace kvl
