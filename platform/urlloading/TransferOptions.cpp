#include "platform/urlloading/TransferOptions.h"

#include "platform/core/ASCII.h"
#include "platform/urlloading/InputMeter.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <map>
#include <string>
#include <string_view>

namespace kvl::urlloading {
namespace {

// Idle deadlines are the engine's; libcurl's own connect time-out (300 s) must not come before.
constexpr long kNoConnectTimeoutMilliseconds = std::numeric_limits<int>::max();
// libcurl 7.88 spins when a slow reader takes a large body over HTTP/2.
constexpr std::size_t kLargestHTTP2Body = std::size_t{1} << 20;
// As many cookies of a host as browsers are asked to keep at least (RFC 6265, 6.1). libcurl keeps
// any number, and looks at all of them for each request and each new one.
constexpr std::size_t kCookiesOfOneHost = 50;
constexpr long kHighestWeight = 256;
constexpr long kLowestWeight = 1;
constexpr long kUploadBufferSize = 256L << 10;
// How much of an answer libcurl keeps until the exchange takes it. When another exchange finds more
// on their connection, libcurl 7.88 pauses nghttp2, and if that was in the answer's last frame,
// does not notice the end until something else comes. So there is room for all of a body that is
// read before its turn, beside a head of the usual size.
constexpr std::size_t kBufferSize = std::size_t{112} << 10;
constexpr std::size_t kUsualHead = std::size_t{12} << 10;
static_assert(kBufferSize >= InputMeter::kMostUntaken + kUsualHead);

// The message's framing is the loader's business, and cookies go through libcurl's own list.
bool isSetElsewhere(std::string_view name) {
  return ascii::equalIgnoringCase(name, "Content-Length") ||
         ascii::equalIgnoringCase(name, "Transfer-Encoding") ||
         ascii::equalIgnoringCase(name, "Cookie");
}

void append(HeaderList& list, const std::string& line) {
  if (curl_slist* longer = curl_slist_append(list.get(), line.c_str())) {
    static_cast<void>(list.release());
    list.reset(longer);
  }
}

// libcurl takes "Name:" for a field to leave out and "Name;" for one without a value.
std::string fieldLine(const HeaderFields::Field& field) {
  return ascii::trimmed(field.second).empty() ? field.first + ";"
                                              : field.first + ": " + field.second;
}

// What libcurl offers by itself when it is to choose. It writes the text anew for each request,
// character by character, and once more into the request.
std::string encodingsField() {
  const int features = curl_version_info(CURLVERSION_NOW)->features;
  std::string names;
  if (features & CURL_VERSION_LIBZ) names += ", deflate, gzip";
  if (features & CURL_VERSION_BROTLI) names += ", br";
  if (features & CURL_VERSION_ZSTD) names += ", zstd";
  return "Accept-Encoding: " + (names.empty() ? "identity" : names.substr(2));
}

// The fields of a request that names none. Null without memory; then libcurl makes them.
curl_slist* usualFields() {
  static curl_slist* const fields = curl_slist_append(nullptr, encodingsField().c_str());
  return fields;
}

bool alwaysHasLength(const std::string& method) {
  return method == "POST" || method == "PUT" || method == "PATCH";
}

// A HEAD request has none, whatever it was given.
bool sendsBody(const URLRequest& request) {
  if (request.method() == "HEAD") return false;
  return request.bodySource() || (request.body() && !request.body()->empty()) ||
         alwaysHasLength(request.method());
}

// libcurl adds them to what has a body.
void leaveOutFieldsOfBodies(HeaderList& list, const HeaderFields& headers) {
  for (const char* unwanted : {"Expect", "Content-Type"}) {
    if (!headers.find(unwanted)) append(list, std::string(unwanted) + ":");
  }
}

// Absent when they are the usual ones.
HeaderList makeFields(const URLRequest& request) {
  HeaderList list;
  const HeaderFields& headers = request.headers();
  const bool takesNoEncoding = request.contentKind() == ContentKind::eventStream;
  for (const auto& field : headers) {
    if (isSetElsewhere(field.first)) continue;
    if (takesNoEncoding && ascii::equalIgnoringCase(field.first, "Accept-Encoding")) continue;
    append(list, fieldLine(field));
  }
  // Without the field a server may choose any encoding.
  if (takesNoEncoding) append(list, "Accept-Encoding: identity");
  if (sendsBody(request)) leaveOutFieldsOfBodies(list, headers);
  const bool isUsual = !takesNoEncoding && !headers.find("Accept-Encoding");
  if (list && isUsual && usualFields() != nullptr) append(list, usualFields()->data);
  return list;
}

void applyBody(OptionSetter& options, const std::optional<Data>& body) {
  const std::size_t size = body ? body->size() : 0;
  options.set(CURLOPT_POST, 1L);
  options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
  options.set(CURLOPT_POSTFIELDS, size == 0 ? "" : reinterpret_cast<const char*>(body->data()));
}

void applySource(OptionSetter& options, const std::string& method) {
  options.set(CURLOPT_UPLOAD, 1L);
  options.set(CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferSize);
  options.set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

void applyMethod(OptionSetter& options, const URLRequest& request) {
  const std::string& method = request.method();
  if (method == "HEAD") return options.set(CURLOPT_NOBODY, 1L);
  if (request.bodySource()) return applySource(options, method);
  const bool hasBody = sendsBody(request);
  if (hasBody) applyBody(options, request.body());
  if (method != (hasBody ? "POST" : "GET")) options.set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

// Servers may heed how requests compare (RFC 7540, 5.3). Usual ones have the weight that is meant
// where none is told.
void applyPriority(OptionSetter& options, RequestPriority priority) {
  if (priority == RequestPriority::usual) return;
  options.set(CURLOPT_STREAM_WEIGHT,
              priority == RequestPriority::high ? kHighestWeight : kLowestWeight);
}

// A program that the host starts meanwhile inherits nothing.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

void applyIndependence(OptionSetter& options) {
  options.set(CURLOPT_PROXY, "");
  options.set(CURLOPT_NOPROXY, "*");
  options.set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  options.set(CURLOPT_NOSIGNAL, 1L);
  options.set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
  options.set(CURLOPT_QUICK_EXIT, 1L);  // a name look-up that hangs must not hold the I/O thread
}

void applyTLS(OptionSetter& options) {
  options.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  options.set(CURLOPT_CAINFO, nullptr);
  options.set(CURLOPT_CAPATH, nullptr);
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 0L);  // the trust's evaluation checks the name
  // A resumed session would skip the challenges and present the identity of before.
  options.set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
}

// A line begins with the host, and a tab follows it.
std::string_view hostOf(std::string_view line) {
  constexpr std::string_view kHidden = "#HttpOnly_";
  if (line.starts_with(kHidden)) line.remove_prefix(kHidden.size());
  return line.substr(0, line.find('\t'));
}

}  // namespace

bool offersHTTP2(const URLRequest& request) {
  if (request.bodySource()) return false;
  return !request.body() || request.body()->size() <= kLargestHTTP2Body;
}

bool isPlain(const URLRequest& request) {
  const HeaderFields& headers = request.headers();
  // libcurl 7.88 keeps the name in a "Host" field for the cookies of the handle's next requests.
  return request.method() == "GET" && !request.body() && !request.bodySource() &&
         !headers.find("Cookie") && !headers.find("Host") &&
         request.priority() == RequestPriority::usual &&
         request.contentKind() != ContentKind::eventStream;
}

void applyCommonOptions(OptionSetter& options, CURLSH* cookies,
                        const URLSessionConfiguration& configuration) {
  applyIndependence(options);
  applyTLS(options);
  options.set(CURLOPT_PROTOCOLS_STR,
              configuration.allowsInsecureHTTPLoads ? "http,https" : "https");
  options.set(CURLOPT_FOLLOWLOCATION, 0L);
  options.set(CURLOPT_PATH_AS_IS, 1L);
  options.set(CURLOPT_CONNECTTIMEOUT_MS, kNoConnectTimeoutMilliseconds);
  options.set(CURLOPT_BUFFERSIZE, static_cast<long>(kBufferSize));
  options.set(CURLOPT_SHARE, cookies);
  options.set(CURLOPT_COOKIEFILE, "");
  options.set(CURLOPT_ACCEPT_ENCODING, "");
}

void applyRequest(OptionSetter& options, const URLRequest& request, HeaderList& fields,
                  bool allowsHTTP2) {
  fields = makeFields(request);
  if (request.contentKind() == ContentKind::eventStream)
    options.set(CURLOPT_ACCEPT_ENCODING, nullptr);
  options.set(CURLOPT_URL, request.url()->absoluteString().c_str());
  options.set(CURLOPT_HTTPHEADER, fields ? fields.get() : usualFields());
  if (const auto cookie = request.headers().find("Cookie"))
    options.set(CURLOPT_COOKIE, std::string(*cookie).c_str());
  applyMethod(options, request);
  applyPriority(options, request.priority());
  options.set(CURLOPT_HTTP_VERSION, allowsHTTP2 && offersHTTP2(request)
                                        ? static_cast<long>(CURL_HTTP_VERSION_2TLS)
                                        : static_cast<long>(CURL_HTTP_VERSION_1_1));
}

void applyOwnConnection(OptionSetter& options) {
  // HTTP/1.1, because a connection that multiplexes is shared while it is in use.
  options.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  options.set(CURLOPT_FRESH_CONNECT, 1L);
  options.set(CURLOPT_FORBID_REUSE, 1L);
}

// libcurl lists the cookies of a host from the oldest to the newest, and can drop single ones only
// by dropping all.
void limitCookies(CURL* easy) {
  curl_slist* first = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &first) != CURLE_OK || first == nullptr) return;
  const HeaderList list(first);
  std::map<std::string_view, std::size_t> counts;
  for (const auto* cookie = list.get(); cookie != nullptr; cookie = cookie->next)
    ++counts[hostOf(cookie->data)];
  const auto hasTooMany = [](const auto& count) { return count.second > kCookiesOfOneHost; };
  if (std::ranges::none_of(counts, hasTooMany)) return;
  curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
  for (const auto* cookie = list.get(); cookie != nullptr; cookie = cookie->next) {
    if (counts[hostOf(cookie->data)]-- <= kCookiesOfOneHost)
      curl_easy_setopt(easy, CURLOPT_COOKIELIST, cookie->data);
  }
}

}  // namespace kvl::urlloading
