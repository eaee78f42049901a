#include <local/KVLSession.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::array<std::pair<std::string_view, std::int64_t>, 4> kRecoverableErrors = {{
    {kvl::NSOSStatusErrorDomain, kvl::fnfErr},
    {kvl::NSCocoaErrorDomain, kvl::NSFileReadNoSuchFileError},
    {kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError},
    {kvl::NSURLErrorDomain, kvl::NSURLErrorUnsupportedURL},
}};

constexpr std::array<std::int64_t, 8> kNotarisationErrors = {
    kvl::NSURLErrorSecureConnectionFailed,       kvl::NSURLErrorServerCertificateHasBadDate,
    kvl::NSURLErrorServerCertificateUntrusted,   kvl::NSURLErrorServerCertificateHasUnknownRoot,
    kvl::NSURLErrorServerCertificateNotYetValid, kvl::NSURLErrorClientCertificateRejected,
    kvl::NSURLErrorClientCertificateRequired,    kvl::NSURLErrorCannotLoadFromNetwork,
};

}  // namespace

bool KVLSession::isRecoverableError(const std::optional<kvl::Error>& error) {
  if (!error) return false;
  if (error->domain() == kvl::NSPOSIXErrorDomain) return true;
  return std::ranges::any_of(kRecoverableErrors, [&error](const auto& known) {
    return error->is(known.first, known.second);
  });
}

bool KVLSession::isNotarisationError(const std::optional<kvl::Error>& error) {
  return error && error->domain() == kvl::NSURLErrorDomain &&
         std::ranges::find(kNotarisationErrors, error->code()) != kNotarisationErrors.end();
}
