#include "platform/urlloading/CookieLimit.h"

#include "platform/urlloading/TransferOptions.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace kvl::urlloading {
namespace {

// A line begins with the host, and a tab follows it.
std::string_view hostOf(std::string_view line) {
  constexpr std::string_view kHidden = "#HttpOnly_";
  if (line.starts_with(kHidden)) line.remove_prefix(kHidden.size());
  return line.substr(0, line.find('\t'));
}

}  // namespace

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
