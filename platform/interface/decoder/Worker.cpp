#include "platform/interface/decoder/Worker.h"

#include "platform/interface/decoder/Program.h"
#include "platform/interface/decoder/Status.h"
#include "platform/interface/protocol/ImageMessage.h"
#include "platform/interface/protocol/SealedMemory.h"
#include "platform/interface/protocol/ShortLook.h"

#include <local/platform/Image.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace kvl::decoder {
namespace {

using interface::Descriptor;
using interface::ImageAnswer;
using interface::ImageChannel;
using interface::ImageRequest;
using interface::MappedBytes;
using interface::Outcome;
using interface::Span;
using Packet = ImageChannel::Packet;

constexpr std::size_t kMostKeptBytes = std::size_t{32} << 20;

bool isWithinLimits(const ImageRequest& request) {
  return !request.drawing || byteCountOf(*request.drawing) <= kMaximumBitmapPixels * 4;
}

// Several libraries end the process when they get no memory. What the C library said last tells
// that from other ends.
extern "C" void endForWantOfMemory(int signal) {
  if (errno == ENOMEM) _exit(interface::kOutOfMemory);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

// A picture with the bytes that it refers to.
struct Kept {
  std::uint64_t image = 0;
  Bytes copied;
  MappedBytes mapped;
  std::unique_ptr<pictures::Picture> picture;

  [[nodiscard]] std::size_t cost() const {
    return copied.size() + mapped.bytes().size() + (picture ? picture->cost() : 0);
  }
};

// The pictures opened last, so that drawing one does not need its bytes again.
class Pictures {
 public:
  [[nodiscard]] pictures::Picture* find(std::uint64_t image) {
    const auto found = std::ranges::find(kept_, image, &Kept::image);
    if (found == kept_.end()) return nullptr;
    kept_.splice(kept_.begin(), kept_, found);
    return found->picture.get();
  }

  void keep(Kept kept) { kept_.push_front(std::move(kept)); }

  // Before another is opened: the last one stays until then, whatever it takes.
  void makeRoom(std::uint64_t image) {
    std::erase_if(kept_, [image](const Kept& kept) { return kept.image == image; });
    std::size_t count = 0;
    std::size_t bytes = 0;
    std::erase_if(kept_, [&](const Kept& kept) {
      bytes += kept.cost();
      return ++count >= interface::kMostOpenImages || bytes > kMostKeptBytes;
    });
  }

  [[nodiscard]] std::size_t mappedBytes() const {
    std::size_t bytes = 0;
    for (const auto& kept : kept_) bytes += kept.mapped.bytes().size();
    return bytes;
  }

 private:
  std::list<Kept> kept_;  // the last used one first
};

class Worker {
 public:
  Worker(ImageChannel channel, const Program& program, const MemoryLimit& memory)
      : channel_(std::move(channel)), program_(program), memory_(memory) {}

  [[nodiscard]] bool sayReady(Descriptor self, std::uint64_t number) {
    write(interface::WorkerReady{.number = number, .process = getpid()}, message_);
    const int descriptor = self.get();
    return channel_.send(message_, {&descriptor, 1});
  }

  [[nodiscard]] int serve() {
    Packet packet;
    while (next(packet) == ImageChannel::Receipt::kPacket) {
      const auto request = interface::readRequest(packet.message, packet.count);
      if (!request || !isWithinLimits(*request)) return kWrongMessage;
      ImageAnswer answer;
      answer.number = request->number;
      answer.image = request->image;
      if (!work(*request, packet, answer)) return kWrongMessage;
      write(answer, message_);
      if (!channel_.send(message_)) return kLetGo;
    }
    return kLetGo;
  }

 private:
  ImageChannel::Receipt next(Packet& packet) {
    auto receipt = ImageChannel::Receipt::kNothingYet;
    const auto isThere = [&] {
      receipt = channel_.receive(packet, ImageChannel::kMostDescriptors);
      return receipt != ImageChannel::Receipt::kNothingYet;
    };
    // Whoever has asked for an image's size mostly asks for its pixels next.
    if (shortLook_.sees(isThere)) return receipt;
    while (!isThere()) {
      pollfd entry{channel_.descriptor(), POLLIN, 0};
      poll(&entry, 1, -1);
    }
    return receipt;
  }

  // False when the request's descriptors are not as they should be.
  [[nodiscard]] bool work(const ImageRequest& request, Packet& packet, ImageAnswer& answer) {
    if (request.byteCount > 0) {
      Kept kept;
      kept.image = request.image;
      if (!receive(request, packet, kept)) return false;
      answer.outcome = open(request.format, std::move(kept));
      if (answer.outcome != Outcome::kDone) return true;
    }
    auto* const picture = pictures_.find(request.image);
    answer.outcome = picture == nullptr ? Outcome::kUnknownImage : Outcome::kDone;
    if (picture == nullptr) return true;
    answer.naturalSize = picture->size();
    return !request.drawing || draw(*picture, request, packet, answer);
  }

  [[nodiscard]] bool receive(const ImageRequest& request, const Packet& packet, Kept& kept) {
    pictures_.makeRoom(request.image);
    const bool inFile = request.inlineBytes.empty();
    allow(inFile ? request.byteCount : 0);
    if (inFile) {
      kept.mapped = MappedBytes::readable(packet.descriptors[0], request.byteCount);
      return !kept.mapped.bytes().empty();
    }
    kept.copied.assign(request.inlineBytes.begin(), request.inlineBytes.end());
    return true;
  }

  // What the host has mapped here does not count as the image's memory.
  void allow(std::size_t more) {
    const auto mapped = pictures_.mappedBytes() + more;
    if (mapped != std::exchange(mapped_, mapped)) memory_.allow(mapped);
  }

  [[nodiscard]] Outcome open(interface::ImageFormat format, Kept kept) {
    const Span bytes = kept.copied.empty() ? kept.mapped.bytes() : Span(kept.copied);
    const auto outcome = attempt(Outcome::kNoImage, [&] {
      kept.picture = program_.decode(format, bytes);
      return kept.picture != nullptr;
    });
    if (outcome != Outcome::kDone) return outcome;
    const auto [width, height] = kept.picture->size();
    if (!(width > 0) || !(height > 0)) return Outcome::kNoImage;
    if (!(std::max(width, height) <= interface::kLongestSide)) return Outcome::kTooLarge;
    pictures_.keep(std::move(kept));
    return Outcome::kDone;
  }

  [[nodiscard]] bool draw(pictures::Picture& picture, const ImageRequest& request,
                          const Packet& packet, ImageAnswer& answer) {
    const auto size = *request.drawing;
    MappedBytes file;
    std::span<std::uint8_t> pixels;
    allow(request.pixelsInFile ? byteCountOf(size) : 0);
    if (request.pixelsInFile) {
      file = MappedBytes::writable(packet.descriptors[packet.count - 1], byteCountOf(size));
      pixels = file.pixels();
      if (pixels.empty()) return false;
    } else {
      drawn_.assign(byteCountOf(size), 0);
      pixels = drawn_;
    }
    answer.outcome = attempt(Outcome::kNotDrawn, [&] {
      return picture.draw({.pixels = pixels, .width = size.width, .height = size.height});
    });
    if (answer.outcome != Outcome::kDone) return true;
    answer.pixelSize = size;
    if (!request.pixelsInFile) answer.inlinePixels = drawn_;
    return true;
  }

  // A library that got no memory may say so, or merely fail.
  template <class Step>
  [[nodiscard]] Outcome attempt(Outcome failure, Step step) {
    errno = 0;
    try {
      if (step()) return Outcome::kDone;
      return errno == ENOMEM || program_.lacksMemory() ? Outcome::kMemory : failure;
    } catch (const std::bad_alloc&) {
      return Outcome::kMemory;
    } catch (...) {
      return failure;
    }
  }

  ImageChannel channel_;
  const Program& program_;
  const MemoryLimit& memory_;
  interface::ShortLook shortLook_;
  Pictures pictures_;
  std::size_t mapped_ = 0;
  Bytes drawn_;
  Bytes message_;
};

}  // namespace

int serve(ImageChannel channel, Descriptor self, std::uint64_t number, const Program& program,
          const MemoryLimit& memory) {
  std::signal(SIGABRT, endForWantOfMemory);
  std::signal(SIGTRAP, endForWantOfMemory);
  Worker worker(std::move(channel), program, memory);
  const bool said = worker.sayReady(std::move(self), number);
  return said ? worker.serve() : kLetGo;
}

}  // namespace kvl::decoder
