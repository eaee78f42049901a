// libcurl as a whole, and owners of its objects.
#pragma once

#include <curl/curl.h>

#include <memory>

namespace kvl::urlloading {

struct CurlDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, CurlDeleter>;
using HeaderList = std::unique_ptr<curl_slist, CurlDeleter>;

struct MultiDeleter {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

struct ShareDeleter {
  void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
};
using ShareHandle = std::unique_ptr<CURLSH, ShareDeleter>;

// Prepares libcurl and OpenSSL, once per process. False when they cannot be used.
[[nodiscard]] bool prepareCurl();

}  // namespace kvl::urlloading
