#include "platform/urlloading/InputMeter.h"

#include <openssl/bio.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace kvl::urlloading {

void InputMeter::watch(const SSL* ssl) {
  BIO* const bio = SSL_get_rbio(ssl);
  if (bio == nullptr) return;
  BIO_set_callback_arg(bio, reinterpret_cast<char*>(this));
  BIO_set_callback_ex(bio, &InputMeter::onOperation);
}

// libcurl takes a read that is to be tried again for an empty socket, and the next wait for input
// returns at once.
long InputMeter::onOperation(BIO* bio, int operation, const char*, std::size_t, int, long,
                             int result, std::size_t* processed) {
  auto& meter = *reinterpret_cast<InputMeter*>(BIO_get_callback_arg(bio));
  if (operation == BIO_CB_READ && !meter.mayRead()) {
    BIO_clear_retry_flags(bio);
    if (!meter.isSpent()) BIO_set_retry_read(bio);
    return -1;
  }
  if (operation == BIO_CB_WRITE) meter.noteWriting();
  if (operation == BIO_CB_WRITE && meter.isSpent()) {
    BIO_clear_retry_flags(bio);
    return -1;
  }
  if (operation != (BIO_CB_READ | BIO_CB_RETURN)) return result;
  if (result > 0 && processed != nullptr) meter.take(*processed);
  return result == 0 && meter.needsNotice_ ? -1 : result;
}

// Each of several exchanges says that the pass is over, which it is once.
void InputMeter::endPass() noexcept {
  if (std::exchange(exchangesInPass_, 0) == 0) return;
  untaken_ = std::min(untaken_, inPass_);
  inPass_ = 0;
  uselessInPass_ = 0;
  isActive_ = false;
  isKnownToLive_ = false;
}

void InputMeter::take(std::size_t bytes) noexcept {
  isActive_ = true;
  inPass_ += bytes;
  untaken_ += bytes;
  uselessInPass_ += bytes;
  useless_ += bytes;
  if (isSpent() && socket_ >= 0) shutdown(socket_, SHUT_RDWR);
}

void InputMeter::noteProgress(std::size_t bytes) noexcept {
  isActive_ = true;
  if (isSpent()) return;
  uselessInPass_ -= std::min(uselessInPass_, bytes);
  useless_ -= std::min(useless_, bytes > useless_ / kWorth ? useless_ : bytes * kWorth);
}

}  // namespace kvl::urlloading
