#include "platform/interface/protocol/SealedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <utility>

namespace kvl::interface {
namespace {

constexpr int kSizeSeals = F_SEAL_GROW | F_SEAL_SHRINK;
constexpr int kContentSeals = F_SEAL_WRITE | F_SEAL_SEAL;

bool isWithinFileLimit(std::size_t size) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && size <= limit.rlim_cur;
}

Descriptor memoryFile(std::size_t size) {
  constexpr auto kLongest = static_cast<std::size_t>(std::numeric_limits<off_t>::max());
  if (size == 0 || size > kLongest || !isWithinFileLimit(size)) return {};
  return Descriptor(::memfd_create("image", MFD_CLOEXEC | MFD_ALLOW_SEALING));
}

bool writeAll(const Descriptor& file, Span bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(file.get(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

bool seal(const Descriptor& file, int seals) {
  return ::fcntl(file.get(), F_ADD_SEALS, seals) == 0;
}

// Of just that size, which stays: who maps it gets no SIGBUS.
bool isOfSize(const Descriptor& file, std::size_t size) {
  struct stat state{};
  return size > 0 && ::fstat(file.get(), &state) == 0 && S_ISREG(state.st_mode) &&
         std::cmp_equal(state.st_size, size);
}

int sealsOf(const Descriptor& file) {
  return std::max(::fcntl(file.get(), F_GET_SEALS), 0);
}

std::span<std::uint8_t> mapped(const Descriptor& file, std::size_t size, int protection,
                               int sharing) {
  void* const start = ::mmap(nullptr, size, protection, sharing, file.get(), 0);
  if (start == MAP_FAILED) return {};
  return {static_cast<std::uint8_t*>(start), size};
}

}  // namespace

std::optional<Descriptor> sealedFile(Span bytes) {
  auto file = memoryFile(bytes.size());
  if (!file || !writeAll(file, bytes) || !seal(file, kSizeSeals | kContentSeals)) return {};
  return file;
}

std::optional<Descriptor> drawableFile(std::size_t size) {
  auto file = memoryFile(size);
  if (!file || ::ftruncate(file.get(), static_cast<off_t>(size)) != 0 || !seal(file, kSizeSeals)) {
    return {};
  }
  return file;
}

std::optional<Data> sealedData(const Descriptor& file, std::size_t size) {
  if (!seal(file, kContentSeals)) return {};
  auto bytes = std::make_shared<const MappedBytes>(MappedBytes::readable(file, size));
  const auto span = bytes->bytes();
  if (span.empty()) return {};
  return Data(std::move(bytes), span);
}

// Private although nobody writes: older kernels take any shared mapping of a file that may be
// written for one that writes, and refuse it.
MappedBytes MappedBytes::readable(const Descriptor& file, std::size_t size) {
  constexpr int kSeals = kSizeSeals | kContentSeals;
  if ((sealsOf(file) & kSeals) != kSeals || !isOfSize(file, size)) return {};
  return MappedBytes(mapped(file, size, PROT_READ, MAP_PRIVATE));
}

MappedBytes MappedBytes::writable(const Descriptor& file, std::size_t size) {
  if ((sealsOf(file) & kSizeSeals) != kSizeSeals || !isOfSize(file, size)) return {};
  return MappedBytes(mapped(file, size, PROT_READ | PROT_WRITE, MAP_SHARED));
}

MappedBytes::~MappedBytes() {
  if (!bytes_.empty()) ::munmap(bytes_.data(), bytes_.size());
}

MappedBytes::MappedBytes(MappedBytes&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}

MappedBytes& MappedBytes::operator=(MappedBytes&& other) noexcept {
  MappedBytes taken(std::move(other));
  std::swap(bytes_, taken.bytes_);
  return *this;
}

}  // namespace kvl::interface
