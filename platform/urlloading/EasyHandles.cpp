#include "platform/urlloading/EasyHandles.h"

#include "platform/core/ASCII.h"

#include <algorithm>
#include <cstddef>

namespace kvl::urlloading {
namespace {

ShareHandle makeCookies() {
  ShareHandle share(curl_share_init());
  if (share) curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
  return share;
}

}  // namespace

EasyHandles::EasyHandles(const URLSessionConfiguration& configuration)
    : configuration_(configuration), cookies_(makeCookies()) {
  idle_.reserve(kMostIdle);
}

EasyHandle EasyHandles::take() {
  // For those that come back.
  if (idle_.capacity() <= used_) idle_.reserve(2 * idle_.capacity());
  EasyHandle easy;
  if (idle_.empty()) {
    easy = make();
  } else {
    easy = std::move(idle_.back());
    idle_.pop_back();
  }
  if (easy) ++used_;
  if (easy && std::exchange(hasNewCookies_, false)) limitCookies(easy.get());
  return easy;
}

EasyHandle EasyHandles::make() {
  EasyHandle easy(curl_easy_init());
  if (!easy) return nullptr;
  OptionSetter options(easy.get());
  applyCommonOptions(options, cookies_.get(), configuration_);
  return options.result() == CURLE_OK ? std::move(easy) : nullptr;
}

void EasyHandles::giveBack(EasyHandle easy) noexcept {
  // What they point to goes with the exchange, and libcurl may look at them meanwhile.
  OptionSetter options(easy.get());
  options.set(CURLOPT_VERBOSE, 0L);
  options.set(CURLOPT_ERRORBUFFER, nullptr);
  options.set(CURLOPT_HTTPHEADER, nullptr);
  if (options.result() == CURLE_OK && idle_.size() < idle_.capacity())
    idle_.push_back(std::move(easy));
  noteReturn();
}

void EasyHandles::giveUp(EasyHandle easy) noexcept {
  easy.reset();
  noteReturn();
}

// While many are under way, those of some that have just ended wait for the next.
void EasyHandles::noteReturn() noexcept {
  --used_;
  const std::size_t room = std::max(kMostIdle, used_);
  if (idle_.size() > room) idle_.resize(room);
}

void EasyHandles::noteHeaderLine(std::string_view line) noexcept {
  constexpr std::string_view kSetCookie = "Set-Cookie:";
  hasNewCookies_ =
      hasNewCookies_ || ascii::equalIgnoringCase(line.substr(0, kSetCookie.size()), kSetCookie);
}

}  // namespace kvl::urlloading
