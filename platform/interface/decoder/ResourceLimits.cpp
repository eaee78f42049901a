#include "platform/interface/decoder/ResourceLimits.h"

#include "platform/interface/decoder/Sanitizer.h"

#include <local/platform/Image.h>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace kvl::decoder {
namespace {

using interface::Descriptor;

// The longest file, the largest bitmap, and the files of the pictures that are kept.
constexpr std::size_t kMostMapped =
    kMaximumImageBytes + kMaximumBitmapPixels * 4 + (std::size_t{32} << 20);
// Of a worker's life: behind the two seconds of an image, which the host measures.
constexpr rlim_t kProcessorSeconds = 25;
constexpr rlim_t kMostDescriptors = 32;
// Above what anything else on a desktop has.
constexpr std::string_view kFirstToGo = "800";

bool limit(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
  rlimit present{};
  if (getrlimit(resource, &present) != 0) return false;
  hard = std::min(hard, present.rlim_max);
  const rlimit wanted{std::min(soft, hard), hard};
  return setrlimit(resource, &wanted) == 0;
}

void giveUpCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  syscall(SYS_capset, &header, none.data());
}

}  // namespace

void expectTheWorst() {
  limit(RLIMIT_CORE, 0, 0);
  const Descriptor score(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  [[maybe_unused]] const auto written = write(score.get(), kFirstToGo.data(), kFirstToGo.size());
}

bool limitProcess() {
  const bool descriptors = limit(RLIMIT_NOFILE, kMostDescriptors, kMostDescriptors);
  const bool files = limit(RLIMIT_FSIZE, 0, 0);
  giveUpCapabilities();
  return descriptors && files;
}

Descriptor MemoryLimit::openSize() {
  return Descriptor(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
}

std::optional<std::size_t> MemoryLimit::sizeNow(const Descriptor& size) {
  std::array<char, 128> text{};
  const auto length = size ? pread(size.get(), text.data(), text.size(), 0) : -1;
  std::size_t pages = 0;
  if (length <= 0 || std::from_chars(text.data(), text.data() + length, pages).ec != std::errc{}) {
    return std::nullopt;
  }
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void MemoryLimit::begin() const {
  limit(RLIMIT_CPU, kProcessorSeconds, kProcessorSeconds);
  if constexpr (!kSanitized) {
    const auto most = size_ + kMaximumImageMemory + kMostMapped;
    limit(RLIMIT_AS, most, most);
  }
  allow(0);
}

void MemoryLimit::allow(std::size_t mapped) const {
  if constexpr (!kSanitized) {
    limit(RLIMIT_AS, size_ + kMaximumImageMemory + mapped, RLIM_INFINITY);
  }
}

}  // namespace kvl::decoder
