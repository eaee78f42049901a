#include "platform/interface/images/JPEGStructure.h"

#include "platform/interface/images/Limits.h"

#include <algorithm>

namespace kvl::images {
namespace {

constexpr std::uint32_t kEndOfImage = 0xD9;
constexpr std::uint32_t kStartOfScan = 0xDA;
constexpr std::uint32_t kMarkerPrefix = 0xFF;

bool isRestart(std::uint32_t marker) {
  return marker >= 0xD0 && marker <= 0xD7;
}

// Restart markers and the one for temporary use have no length.
bool standsAlone(std::uint32_t marker) {
  return isRestart(marker) || marker == 0x01;
}

bool isFrame(std::uint32_t marker) {
  const bool otherTables = marker == 0xC4 || marker == 0xC8 || marker == 0xCC;
  return marker >= 0xC0 && marker <= 0xCF && !otherTables;
}

class JPEGWalk {
 public:
  explicit JPEGWalk(Span bytes) : bytes_(bytes), cursor_(bytes, ByteOrder::kBig) {}

  bool reachesTheEnd() {
    cursor_.skip(2);
    while (true) {
      const auto marker = nextMarker();
      if (cursor_.failed()) return false;
      if (marker == kEndOfImage) return scans_ > 0;
      if (!standsAlone(marker) && !skipSegment(marker)) return false;
    }
  }

 private:
  std::uint32_t nextMarker() {
    if (cursor_.number(1) != kMarkerPrefix) cursor_.fail();
    auto marker = kMarkerPrefix;
    while (marker == kMarkerPrefix && !cursor_.failed()) marker = cursor_.number(1);
    return marker;
  }

  bool skipSegment(std::uint32_t marker) {
    const auto length = cursor_.number(2);
    if (length < 2) return false;
    if (isFrame(marker) && !takeFrame(cursor_.position())) return false;
    cursor_.skip(length - 2);
    if (marker != kStartOfScan) return !cursor_.failed();
    skipCodedData();
    return frames_ == 1 && ++scans_ <= kMaximumScans;
  }

  bool takeFrame(std::size_t position) {
    ByteCursor frame(bytes_.subspan(position), ByteOrder::kBig);
    frame.skip(1);
    const auto height = frame.number(2);
    const auto width = frame.number(2);
    const auto components = frame.number(1);
    return ++frames_ == 1 && !frame.failed() && components <= 4 && isDecodable(width, height);
  }

  // To the next marker that is not part of the coded data.
  void skipCodedData() {
    auto rest = bytes_.subspan(cursor_.position());
    while (true) {
      const auto found = std::ranges::find(rest, std::uint8_t{kMarkerPrefix});
      const auto distance = static_cast<std::size_t>(found - rest.begin());
      const auto following = rest.subspan(distance);
      if (following.size() < 2) return cursor_.fail();
      cursor_.skip(distance);
      if (following[1] != 0 && !isRestart(following[1])) return;
      cursor_.skip(2);
      rest = following.subspan(2);
    }
  }

  Span bytes_;
  ByteCursor cursor_;
  int frames_ = 0;
  int scans_ = 0;
};

}  // namespace

bool isWholeJPEG(Span bytes) {
  return JPEGWalk(bytes).reachesTheEnd();
}

}  // namespace kvl::images
