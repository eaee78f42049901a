#include "platform/core/SystemText.h"

#include "platform/core/Sentence.h"

#include <local/platform/Error.h>

#include <locale.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <span>
#include <string_view>

namespace kvl::core {
namespace {

struct CodeText {
  std::int64_t code;
  std::string_view text;
};

constexpr std::array kStatusTexts{
    CodeText{fnfErr, translatable("The file was not found.")},
    CodeText{errSecParam, translatable("A parameter is not valid.")},
    CodeText{errSecInternalComponent, translatable("A library has failed.")},
    CodeText{errSecUnknownFormat, translatable("The data is not in a format that is known.")},
    CodeText{errSecNotAvailable, translatable("There is no key store.")},
    CodeText{errSecDuplicateItem, translatable("The key store holds this item already.")},
    CodeText{errSecItemNotFound, translatable("The key store does not hold this item.")},
    CodeText{errSecDataTooLarge, translatable("The data is too large for the key store.")},
    CodeText{errSecInteractionNotAllowed, translatable("The key store is locked.")},
    CodeText{errSecDecode, translatable("The data could not be decoded.")},
    CodeText{errSecInvalidKeyRef, translatable("The key is not valid.")},
};

// The C library's own words, so that they can be translated where it has no translations.
constexpr std::array kSystemTexts{
    CodeText{EPERM, translatable("Operation not permitted")},
    CodeText{ENOENT, translatable("No such file or directory")},
    CodeText{EINTR, translatable("Interrupted system call")},
    CodeText{EIO, translatable("Input/output error")},
    CodeText{ENXIO, translatable("No such device or address")},
    CodeText{E2BIG, translatable("Argument list too long")},
    CodeText{EBADF, translatable("Bad file descriptor")},
    CodeText{ECHILD, translatable("No child processes")},
    CodeText{EAGAIN, translatable("Resource temporarily unavailable")},
    CodeText{ENOMEM, translatable("Cannot allocate memory")},
    CodeText{EACCES, translatable("Permission denied")},
    CodeText{EBUSY, translatable("Device or resource busy")},
    CodeText{EEXIST, translatable("File exists")},
    CodeText{EXDEV, translatable("Invalid cross-device link")},
    CodeText{ENODEV, translatable("No such device")},
    CodeText{ENOTDIR, translatable("Not a directory")},
    CodeText{EISDIR, translatable("Is a directory")},
    CodeText{EINVAL, translatable("Invalid argument")},
    CodeText{ENFILE, translatable("Too many open files in system")},
    CodeText{EMFILE, translatable("Too many open files")},
    CodeText{ENOTTY, translatable("Inappropriate ioctl for device")},
    CodeText{ETXTBSY, translatable("Text file busy")},
    CodeText{EFBIG, translatable("File too large")},
    CodeText{ENOSPC, translatable("No space left on device")},
    CodeText{ESPIPE, translatable("Illegal seek")},
    CodeText{EROFS, translatable("Read-only file system")},
    CodeText{EPIPE, translatable("Broken pipe")},
    CodeText{ENAMETOOLONG, translatable("File name too long")},
    CodeText{ENOEXEC, translatable("Exec format error")},
    CodeText{ENOSYS, translatable("Function not implemented")},
    CodeText{ENOTEMPTY, translatable("Directory not empty")},
    CodeText{ELOOP, translatable("Too many levels of symbolic links")},
    CodeText{EPROTO, translatable("Protocol error")},
    CodeText{EOVERFLOW, translatable("Value too large for defined data type")},
    CodeText{EMSGSIZE, translatable("Message too long")},
    CodeText{EPROTONOSUPPORT, translatable("Protocol not supported")},
    CodeText{EOPNOTSUPP, translatable("Operation not supported")},
    CodeText{EADDRINUSE, translatable("Address already in use")},
    CodeText{EADDRNOTAVAIL, translatable("Cannot assign requested address")},
    CodeText{ENETDOWN, translatable("Network is down")},
    CodeText{ENETUNREACH, translatable("Network is unreachable")},
    CodeText{ECONNABORTED, translatable("Software caused connection abort")},
    CodeText{ECONNRESET, translatable("Connection reset by peer")},
    CodeText{ENOBUFS, translatable("No buffer space available")},
    CodeText{ENOTCONN, translatable("Transport endpoint is not connected")},
    CodeText{ETIMEDOUT, translatable("Connection timed out")},
    CodeText{ECONNREFUSED, translatable("Connection refused")},
    CodeText{EHOSTDOWN, translatable("Host is down")},
    CodeText{EHOSTUNREACH, translatable("No route to host")},
    CodeText{EALREADY, translatable("Operation already in progress")},
    CodeText{ESTALE, translatable("Stale file handle")},
    CodeText{EDQUOT, translatable("Disk quota exceeded")},
    CodeText{ECANCELED, translatable("Operation canceled")},
};

std::string_view find(std::span<const CodeText> texts, std::int64_t code) {
  const auto known = std::ranges::find(texts, code, &CodeText::code);
  return known == texts.end() ? std::string_view() : known->text;
}

// strerror(3) alone follows the locale of the process.
std::string plainSystemText(int code) {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return plain == nullptr ? std::to_string(code) : strerror_l(code, plain);
}

}  // namespace

std::string statusText(std::int64_t code) {
  return std::string(find(kStatusTexts, code));
}

std::string systemText(std::int64_t code) {
  if (code == kTimedOutPOSIXCode) code = ETIMEDOUT;
  for (const std::span<const CodeText> texts :
       {std::span<const CodeText>(kStatusTexts), std::span<const CodeText>(kSystemTexts)})
    if (const auto text = find(texts, code); !text.empty()) return std::string(text);
  if (code < 0 || code > std::numeric_limits<int>::max())
    return "Unknown error " + std::to_string(code);
  return plainSystemText(static_cast<int>(code));
}

}  // namespace kvl::core
