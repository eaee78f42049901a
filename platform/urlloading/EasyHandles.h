// What the exchanges of one session object have of libcurl in common: cookies and easy handles.
#pragma once

#include "platform/urlloading/TransferOptions.h"

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::urlloading {

struct ShareDeleter {
  void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
};
using ShareHandle = std::unique_ptr<CURLSH, ShareDeleter>;

// A handle costs more to make and to set up than many a request, so those of plain requests that
// went well serve again. They are never reset: that leaks what belongs to the cookies in libcurl
// 7.88. On the I/O thread, but for the making; goes when no exchange has a handle any more.
class EasyHandles {
 public:
  // How many lie ready at most, or as many as are in use if those are more: a session that rests
  // shall be small. One has about 120 KB, which is its buffer, mostly.
  static constexpr std::size_t kMostIdle = 16;

  explicit EasyHandles(const URLSessionConfiguration& configuration);

  // Whether there can be cookies.
  [[nodiscard]] bool isUsable() const noexcept { return cookies_ != nullptr; }

  // A handle with the options that all transfers have in common; null when libcurl has no memory.
  [[nodiscard]] EasyHandle take();
  // Takes back one that is in no multi handle, and on which nothing is set that `applyRequest` and
  // the exchange's callbacks do not set for each plain request.
  void giveBack(EasyHandle easy) noexcept;
  // Takes back any other one.
  void giveUp(EasyHandle easy) noexcept;

  // A line of an answer's head has come.
  void noteHeaderLine(std::string_view line) noexcept;

 private:
  [[nodiscard]] EasyHandle make();
  void noteReturn() noexcept;

  const URLSessionConfiguration& configuration_;
  const ShareHandle cookies_;
  std::vector<EasyHandle> idle_;
  // How many have been taken and are neither back nor gone.
  std::size_t used_ = 0;
  // Whether there may be more cookies than when they were counted last.
  bool hasNewCookies_ = false;
};

}  // namespace kvl::urlloading
