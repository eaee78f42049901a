// A decoder's program that does as it is told by the bytes of the images: the first word is what to
// do, with `draw-` before it when that is meant for the drawing only. Its file's name says what is
// wrong with the program itself.
#include "platform/interface/decoder/Supervisor.h"
#include "platform/interface/protocol/ImageChannel.h"
#include "platform/interface/protocol/ImageMessage.h"
#include "platform/interface/protocol/SealedMemory.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace kvl::interface;
using kvl::Bytes;
using kvl::decoder::Supervisor;

constexpr int kControlSocket = 3;
constexpr std::uint8_t kPixel[] = {10, 20, 30, 255};

int processDescriptor(pid_t process) {
  return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

void waitFor(int descriptor) {
  pollfd entry{descriptor, POLLIN, 0};
  while (poll(&entry, 1, -1) < 0 && errno == EINTR) {
  }
}

class FalseWorker {
 public:
  explicit FalseWorker(ImageChannel channel) : channel_(std::move(channel)) {}

  void sayReady(std::uint64_t number) {
    const Descriptor self(processDescriptor(getpid()));
    write(WorkerReady{.number = number, .process = getpid()}, message_);
    const int descriptor = self.get();
    static_cast<void>(channel_.send(message_, {&descriptor, 1}));
  }

  void serve() {
    while (true) {
      waitFor(channel_.descriptor());
      ImageChannel::Packet packet;
      const auto receipt = channel_.receive(packet, ImageChannel::kMostDescriptors);
      if (receipt == ImageChannel::Receipt::kNothingYet) continue;
      if (receipt == ImageChannel::Receipt::kOver) return;
      const auto request = readRequest(packet.message, packet.count);
      if (!request) _exit(2);
      answer(*request, packet);
    }
  }

 private:
  void keepOrder(const ImageRequest& request, const ImageChannel::Packet& packet) {
    Span bytes = request.inlineBytes;
    MappedBytes mapped;
    if (bytes.empty() && request.byteCount > 0) {
      mapped = MappedBytes::readable(packet.descriptors[0], request.byteCount);
      if (mapped.bytes().empty()) _exit(2);
      bytes = mapped.bytes();
    }
    if (!bytes.empty()) orders_[request.image] = std::string(bytes.begin(), bytes.end());
  }

  void answer(const ImageRequest& request, const ImageChannel::Packet& packet) {
    keepOrder(request, packet);
    ImageAnswer reply;
    reply.number = request.number;
    reply.image = request.image;
    const auto found = orders_.find(request.image);
    if (found == orders_.end()) {
      reply.outcome = Outcome::kUnknownImage;
      return send(reply);
    }
    std::istringstream order(found->second);
    std::string word;
    order >> word;
    const bool isForDrawing = word.starts_with("draw-");
    if (isForDrawing) word.erase(0, 5);
    reply.outcome = Outcome::kDone;
    reply.naturalSize = {16, 8};
    MappedBytes file;
    Bytes pixels;
    if (request.drawing) {
      reply.pixelSize = *request.drawing;
      const std::size_t length = byteCountOf(*request.drawing);
      if (request.pixelsInFile) {
        file = MappedBytes::writable(packet.descriptors[packet.count - 1], length);
        if (file.pixels().empty()) _exit(2);
        fill(file.pixels());
      } else {
        pixels.resize(length);
        fill(pixels);
        reply.inlinePixels = pixels;
      }
    }
    if (word == "mapped") kept_ = std::move(file);
    file = {};
    if (isForDrawing && !request.drawing) return send(reply);
    obey(word, order, reply, pixels);
    if (word == "forget") orders_.erase(found);
  }

  // More would take long, and nobody looks at it.
  static void fill(std::span<std::uint8_t> pixels) {
    if (pixels.size() > std::size_t{4} << 20) return;
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = kPixel[i % 4];
  }

  void obey(const std::string& word, std::istream& order, ImageAnswer reply, Bytes& pixels) {
    if (word == "number") ++reply.number;
    if (word == "image") ++reply.image;
    if (word == "infinite") reply.naturalSize.width = std::numeric_limits<double>::infinity();
    if (word == "nan") reply.naturalSize.height = std::numeric_limits<double>::quiet_NaN();
    if (word == "none") reply.naturalSize = {};
    if (word == "huge") reply.naturalSize.width = 65'536;
    if (word == "many") reply.naturalSize = {2'049, 2'048};
    if (word == "width") ++reply.pixelSize.width;
    if (word == "more") {
      pixels.resize(pixels.size() + 4);
      reply.inlinePixels = pixels;
    }
    if (word == "fewer") reply.inlinePixels = reply.inlinePixels.first(pixels.size() - 4);
    if (word == "outcome") fail(order, reply);
    if (word == "outcome-above") failAbove(order, reply);
    if (word == "silence") return;
    if (word == "sleep") return static_cast<void>(pause());
    if (word == "spin") spin();
    if (word == "sleep-for") {
      std::this_thread::sleep_for(std::chrono::milliseconds(numberIn(order)));
    }
    if (word == "signal") end(order);
    if (isSpoilt_) _exit(9);
    if (word == "spoil") isSpoilt_ = true;
    if (word == "exit") _exit(numberIn(order));
    if (word == "twice") send(reply);
    write(reply, message_);
    if (word == "version") ++message_[4];
    if (word == "kind") write(Hello{}, message_);
    if (word == "ready") write(WorkerReady{.number = 1, .process = 1}, message_);
    if (word == "ended") write(WorkerEnded{.status = SIGSEGV}, message_);
    if (word == "short") message_.pop_back();
    if (word == "long") message_.push_back(0);
    if (word == "cut") message_.resize(kLongestMessage + 1);
    if (word == "empty") message_.clear();
    const int own = channel_.descriptor();
    const std::span<const int> descriptors(&own, word == "descriptor" ? 1 : 0);
    static_cast<void>(channel_.send(message_, descriptors));
    if (word == "after") raise(SIGKILL);
  }

  static int numberIn(std::istream& order) {
    int number = 0;
    order >> number;
    return number;
  }
  static void fail(std::istream& order, ImageAnswer& reply) {
    reply = ImageAnswer{.number = reply.number,
                        .image = reply.image,
                        .outcome = static_cast<Outcome>(numberIn(order)),
                        .naturalSize = {},
                        .pixelSize = {},
                        .inlinePixels = {}};
  }
  // Memory that suffices for so many pixels.
  static void failAbove(std::istream& order, ImageAnswer& reply) {
    const auto outcome = numberIn(order);
    const auto count = std::uint64_t{reply.pixelSize.width} * reply.pixelSize.height;
    if (std::cmp_less_equal(count, numberIn(order))) return;
    std::istringstream again(std::to_string(outcome));
    fail(again, reply);
  }
  [[noreturn]] static void spin() {
    while (true) static_cast<void>(getppid());
  }
  [[noreturn]] static void end(std::istream& order) {
    const int number = numberIn(order);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(number, SIG_DFL);
    raise(number);
    abort();
  }
  void send(const ImageAnswer& reply) {
    write(reply, message_);
    static_cast<void>(channel_.send(message_));
  }

  ImageChannel channel_;
  Bytes message_;
  std::map<std::uint64_t, std::string> orders_;
  MappedBytes kept_;
  bool isSpoilt_ = false;  // by an image: no other one gets an answer
};

[[noreturn]] void work(Descriptor socket, std::uint64_t number, const std::string& name) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (name == "worker-dies") raise(SIGKILL);
  if (name == "second-worker-dies" && number == 2) raise(SIGKILL);
  if (name == "further-workers-die" && number > 1) raise(SIGKILL);
  FalseWorker worker{ImageChannel(std::move(socket))};
  worker.sayReady(name == "worker-of-another" ? number + 1 : number);
  worker.serve();
  _exit(0);
}

// Says for each worker that the system has no process for it.
[[noreturn]] void refuseWorkers(ImageChannel control) {
  Bytes message;
  while (true) {
    waitFor(control.descriptor());
    ImageChannel::Packet packet;
    if (control.receive(packet, 1) != ImageChannel::Receipt::kPacket) _exit(0);
    const auto start = readStart(packet.message, packet.count);
    if (!start) _exit(2);
    ImageChannel worker(std::move(packet.descriptors[0]));
    write(WorkerEnded{.number = start->worker, .error = EAGAIN}, message);
    static_cast<void>(worker.send(message));
  }
}

// The file's, or that of the file beside it for which "decoder" stands.
std::string nameOf(const std::filesystem::path& file) {
  if (file.filename() != "decoder") return file.filename();
  return std::filesystem::read_symlink(file);
}

}  // namespace

int main(int /*count*/, char** arguments) {
  const std::string name = nameOf(arguments[0]);
  ImageChannel control{Descriptor(kControlSocket)};
  Bytes message;
  write(Hello{.lacks = name == "lacks" ? kNoLandlock | kNoNetworkRules | kNoLimits : 0U}, message);
  if (name == "of-another-version") ++message[4];
  if (name == "ends-at-once") _exit(0);
  static_cast<void>(control.send(message));
  if (name == "refuses-workers") refuseWorkers(std::move(control));
  Supervisor supervisor(
      std::move(control), Descriptor(processDescriptor(getppid())),
      [&name](Descriptor socket, std::uint64_t number) { work(std::move(socket), number, name); },
      nullptr);
  _exit(supervisor.run());
}
