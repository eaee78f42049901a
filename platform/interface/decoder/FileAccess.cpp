#include "platform/interface/decoder/FileAccess.h"

#include "platform/interface/protocol/ImageChannel.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace kvl::decoder {
namespace {

using interface::Descriptor;

// As in linux/landlock.h, of which Debian's copy may be older than the kernel.
struct RulesetAttributes {
  std::uint64_t files = 0;
  std::uint64_t network = 0;  // since version 4
  std::uint64_t scopes = 0;   // since version 6
};

struct [[gnu::packed]] PathAttributes {
  std::uint64_t allowed = 0;
  std::int32_t folder = -1;
};

constexpr std::uint32_t kAskVersion = 1;
constexpr int kPathRule = 1;
constexpr std::uint64_t kReadFile = std::uint64_t{1} << 2;
constexpr std::uint64_t kReadFolder = std::uint64_t{1} << 3;
constexpr std::uint64_t kFirstFileRights = (std::uint64_t{1} << 13) - 1;
constexpr std::uint64_t kMoveElsewhere = std::uint64_t{1} << 13;  // since version 2
constexpr std::uint64_t kTruncate = std::uint64_t{1} << 14;       // since version 3
constexpr std::uint64_t kControlDevice = std::uint64_t{1} << 15;  // since version 5
constexpr std::uint64_t kBindAndConnect = 3;
constexpr std::uint64_t kAbstractSocketsAndSignals = 3;

constexpr const char* kFontFolders[] = {"/etc/fonts",
                                        "/usr/share/fonts",
                                        "/usr/local/share/fonts",
                                        "/usr/share/fontconfig",
                                        "/usr/share/xml/fontconfig",
                                        "/var/cache/fontconfig",
                                        "/usr/share/poppler",
                                        "/usr/share/ghostscript",
                                        "/usr/share/texmf/fonts",
                                        "/usr/share/X11/fonts"};

RulesetAttributes attributesOf(unsigned version) {
  RulesetAttributes attributes{.files = kFirstFileRights};
  if (version >= 2) attributes.files |= kMoveElsewhere;
  if (version >= 3) attributes.files |= kTruncate;
  if (version >= kLandlockNetworkVersion) attributes.network = kBindAndConnect;
  if (version >= 5) attributes.files |= kControlDevice;
  if (version >= 6) attributes.scopes = kAbstractSocketsAndSignals;
  return attributes;
}

// A kernel refuses what is longer than it knows.
std::size_t lengthOf(unsigned version) {
  if (version >= 6) return sizeof(RulesetAttributes);
  if (version >= kLandlockNetworkVersion) return offsetof(RulesetAttributes, scopes);
  return offsetof(RulesetAttributes, network);
}

Descriptor makeRuleset(unsigned version) {
  const auto attributes = attributesOf(version);
  return Descriptor(
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, lengthOf(version), 0U)));
}

bool allowReading(const Descriptor& ruleset, const char* path) {
  const Descriptor folder(open(path, O_PATH | O_CLOEXEC | O_DIRECTORY));
  if (!folder) return true;
  const PathAttributes attributes{.allowed = kReadFile | kReadFolder, .folder = folder.get()};
  return syscall(SYS_landlock_add_rule, ruleset.get(), kPathRule, &attributes, 0U) == 0;
}

}  // namespace

std::span<const char* const> fontFolders() {
  return kFontFolders;
}

unsigned landlockVersion() {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, kAskVersion);
  return version > 0 ? static_cast<unsigned>(version) : 0;
}

bool restrictFiles(std::span<const char* const> readable, unsigned version) {
  const auto ruleset = makeRuleset(version);
  if (version == 0 || !ruleset) return false;
  for (const char* path : readable) {
    if (!allowReading(ruleset, path)) return false;
  }
  return syscall(SYS_landlock_restrict_self, ruleset.get(), 0U) == 0;
}

}  // namespace kvl::decoder
