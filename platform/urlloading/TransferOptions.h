// What libcurl is told about one transfer.
#pragma once

#include <local/platform/URLSession.h>

#include <curl/curl.h>

#include <memory>

namespace kvl::urlloading {

struct CurlDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, CurlDeleter>;
using HeaderList = std::unique_ptr<curl_slist, CurlDeleter>;

// Sets options of one easy handle and remembers the first failure.
class OptionSetter {
 public:
  explicit OptionSetter(CURL* easy) noexcept : easy_(easy) {}
  template <class T>
  void set(CURLoption option, T value) {
    const CURLcode code = curl_easy_setopt(easy_, option, value);
    if (result_ == CURLE_OK) result_ = code;
  }
  [[nodiscard]] CURLcode result() const noexcept { return result_; }

 private:
  CURL* easy_;
  CURLcode result_ = CURLE_OK;
};

// What every transfer has in common: nothing of the environment steers it, nothing is remembered
// outside `cookies`, and trust is decided by the TLS context's own callback.
void applyCommonOptions(OptionSetter& options, CURLSH* cookies,
                        const URLSessionConfiguration& configuration);

// Whether the request may go over HTTP/2 where that is allowed.
[[nodiscard]] bool offersHTTP2(const URLRequest& request);

// Whether `applyRequest` sets nothing for the request that it does not set for each one, so that
// another one can follow on the same handle.
[[nodiscard]] bool isPlain(const URLRequest& request);

// The request line, fields and body. `request` must outlive the transfer.
void applyRequest(OptionSetter& options, const URLRequest& request, HeaderList& fields,
                  bool allowsHTTP2);

// For a transfer that may share its connection with no other.
void applyOwnConnection(OptionSetter& options);

// Drops the oldest cookies of those hosts that have set many. @pre the handle's cookies are
// switched on, and no other transfer runs with them meanwhile.
void limitCookies(CURL* easy);

}  // namespace kvl::urlloading
