#include "qt/URLOpening.h"

#include <local/platform/Log.h>
#include <local/qt/Conversions.h>

#include <QCoreApplication>
#include <QDesktopServices>
#include <QThread>
#include <QUrl>
#include <string>
#include <utility>

namespace kvl::qt {
namespace {

bool fail(const std::string& url) {
  log("error opening URL: %@", url);
  return false;
}

// Everything else would be handed to whatever program knows the scheme.
bool isOfTheWeb(const QUrl& address) {
  return address.isValid() &&
         (address.scheme() == QLatin1String("https") || address.scheme() == QLatin1String("http"));
}

bool openNow(const std::string& url) {
  const QUrl address(qString(url), QUrl::StrictMode);
  return (isOfTheWeb(address) && QDesktopServices::openUrl(address)) || fail(url);
}

}  // namespace

URLOpener urlOpener(std::shared_ptr<Errands> errands) {
  return [errands = std::move(errands), gui = QThread::currentThread()](std::string_view text) {
    std::string url(text);
    if (QThread::currentThread() == gui) return openNow(url);
    return errands->handOver([url] { openNow(url); }) || fail(url);
  };
}

}  // namespace kvl::qt
