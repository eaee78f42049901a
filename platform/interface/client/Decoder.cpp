#include "platform/interface/client/Decoder.h"

#include "platform/interface/client/DecoderProgram.h"
#include "platform/interface/protocol/SealedMemory.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <system_error>
#include <utility>

namespace kvl::interface {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestReady{10};
constexpr std::chrono::milliseconds kLongestNews{100};  // how it ended, once it has
// What one leaves in the worker's heap is bounded by its end.
constexpr std::uint64_t kMostRequests = 1'000;
constexpr std::chrono::seconds kMostProcessorTime{20};
constexpr std::uint64_t kManyPixels = std::uint64_t{4} << 20;
// Several threads of the worker may use up what is left sooner.
constexpr std::chrono::milliseconds kShortestPause{5};

constexpr unsigned kAnswerReadable = 1;
constexpr unsigned kProcessEnded = 2;
constexpr unsigned kNudged = 4;

bool isDrawing(ImageFormat format) {
  return format == ImageFormat::kSVG || format == ImageFormat::kPDF;
}

long processors() {
  static const long count = std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L);
  return count;
}

void drain(int nudge) {
  std::uint64_t count = 0;
  static_cast<void>(!::read(nudge, &count, sizeof count));
}

// A request of this process that has been sent.
class UnderWay {
 public:
  UnderWay() noexcept { ++count; }
  ~UnderWay() { --count; }
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;
  [[nodiscard]] static bool isOneOfSeveral() noexcept { return count > 1; }

 private:
  static inline std::atomic<int> count = 0;
};

}  // namespace

// The limits of a request under way.
struct Decoder::Watch {
  const Decoder& decoder;
  const Limits& limits;
  const int nudge;
  const Look& look;
  std::optional<Clock::time_point> again;
  const std::chrono::nanoseconds usedBefore = decoder.processorTime();
  const Clock::time_point wallEnd = Clock::now() + limits.wallTime;
  // Threads on all processors may use it up so soon.
  Clock::time_point clockLook = Clock::now() + limits.processorTime / (2 * processors());

  [[nodiscard]] Clock::time_point deadline() const {
    return std::min({wallEnd, clockLook, again.value_or(wallEnd)});
  }

  [[nodiscard]] std::optional<End> judge(bool isNudged) {
    const auto now = Clock::now();
    if (now >= clockLook) {
      const auto left = limits.processorTime - (decoder.processorTime() - usedBefore);
      if (left.count() <= 0) return End::kProcessorTime;
      clockLook = now + std::max<std::chrono::nanoseconds>(left / 2, kShortestPause);
    }
    if (now >= wallEnd) return End::kNoProgress;
    if (!isNudged && (!again || now < *again)) return std::nullopt;
    const auto judgement = look();
    again = judgement.again;
    if (judgement.verdict == Schedule::Verdict::kPutOff) return End::kPutOff;
    if (judgement.verdict == Schedule::Verdict::kEnd) return End::kLetGo;
    return std::nullopt;
  }
};

std::unique_ptr<Decoder> Decoder::ready(Descriptor socket, std::uint64_t number, int program,
                                        DecoderProblem& problem) {
  ImageChannel channel(std::move(socket));
  const auto readable = waitForInput({channel.descriptor(), program}, Clock::now() + kLongestReady);
  ImageChannel::Packet packet;
  if ((readable & 1U) == 0 || channel.receive(packet, 1) != ImageChannel::Receipt::kPacket) {
    problem.text = "the decoder does not answer";
    return nullptr;
  }
  if (const auto ended = readEnded(packet.message)) {
    problem = {"the decoder has ended", ended->error != 0, ended->error == 0};
    if (problem.isTheSystems) problem.text = std::system_category().message(ended->error);
    return nullptr;
  }
  const auto isReady = readReady(packet.message, packet.count);
  if (!isReady || isReady->number != number) {
    problem.text = "the decoder answered wrongly";
    return nullptr;
  }
  clockid_t clock = CLOCK_MONOTONIC;  // what counts where another process's clock may not be read
  if (clock_getcpuclockid(isReady->process, &clock) != 0) clock = CLOCK_MONOTONIC;
  return std::unique_ptr<Decoder>(
      new Decoder(std::move(channel), std::move(packet.descriptors[0]), clock));
}

Decoder::Decoder(ImageChannel channel, Descriptor process, clockid_t clock)
    : channel_(std::move(channel)), process_(std::move(process)), clock_(clock) {}

Decoder::~Decoder() {
  if (process_) static_cast<void>(releaseProcess());
}

Descriptor Decoder::releaseProcess() {
  syscall(SYS_pidfd_send_signal, process_.get(), SIGKILL, nullptr, 0);
  return std::move(process_);
}

std::chrono::nanoseconds Decoder::processorTime() const {
  timespec time{};
  if (clock_gettime(clock_, &time) != 0) return {};  // of one that has ended, which is seen
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool Decoder::isUsable() const {
  return waitForInput({channel_.descriptor(), process_.get()}, Clock::time_point::min()) == 0;
}

bool Decoder::isSpent(std::uint64_t image) const {
  return requests_ >= kMostRequests || (heavy_ != 0 && heavy_ != image) ||
         processorTime() >= kMostProcessorTime;
}

Decoder::Exchange Decoder::exchange(ImageRequest request, Span bytes, const Limits& limits,
                                    int nudge, Clock::time_point again, const Look& look) {
  if (firstImage_ == 0) firstImage_ = request.image;
  hasWorkedOnOthers_ = hasWorkedOnOthers_ || firstImage_ != request.image;
  Watch watch{*this, limits, nudge, look, again};
  const bool isOpened = std::ranges::find(opened_, request.image) != opened_.end();
  auto exchange = attempt(request, isOpened ? Span() : bytes, watch);
  if (exchange.end == End::kAnswered && exchange.answer.outcome == Outcome::kUnknownImage) {
    std::erase(opened_, request.image);
    exchange = attempt(request, bytes, watch);
  }
  if (exchange.end == End::kAnswered) note(request, exchange.answer);
  exchange.isAlone = !hasWorkedOnOthers_;
  exchange.used = std::max(processorTime() - watch.usedBefore, exchange.used);
  return exchange;
}

Decoder::Exchange Decoder::attempt(ImageRequest& request, Span bytes, Watch& watch) {
  request.number = ++requests_;
  Descriptor file;
  if (!send(request, bytes, file)) return isUsable() ? Exchange{} : died();
  auto exchange = await(request, watch);
  if (exchange.end != End::kAnswered || exchange.answer.outcome != Outcome::kDone) return exchange;
  if (!request.drawing) return exchange;
  if (file) {
    auto pixels = sealedData(file, byteCountOf(*request.drawing));
    if (!pixels) return {.end = End::kWrong};
    exchange.pixels = std::move(*pixels);
  } else {
    const Span pixels = exchange.answer.inlinePixels;
    exchange.pixels = Data(Bytes(pixels.begin(), pixels.end()));
  }
  exchange.answer.inlinePixels = {};
  return exchange;
}

// The descriptors travel in the order of the table: bytes, then pixels.
bool Decoder::send(ImageRequest& request, Span bytes, Descriptor& pixels) {
  std::optional<Descriptor> file;
  request.byteCount = bytes.size();
  request.inlineBytes = bytes.size() <= kInlineBytes ? bytes : Span();
  if (request.inlineBytes.size() < bytes.size()) {
    file = sealedFile(bytes);
    if (!file) return false;
  }
  request.pixelsInFile = request.drawing && byteCountOf(*request.drawing) > kInlineBytes;
  if (request.pixelsInFile) {
    auto drawn = drawableFile(byteCountOf(*request.drawing));
    if (!drawn) return false;
    pixels = std::move(*drawn);
  }
  std::array<int, 2> descriptors{};
  std::size_t count = 0;
  if (file) descriptors.at(count++) = file->get();
  if (pixels) descriptors.at(count++) = pixels.get();
  write(request, message_);
  return channel_.send(message_, std::span(descriptors).first(count));
}

Decoder::Exchange Decoder::await(const ImageRequest& request, Watch& watch) {
  const UnderWay underWay;
  std::optional<Exchange> seen;
  // Two who look would take the processor from the decoders that they wait for.
  const auto hasCome = [&] {
    return UnderWay::isOneOfSeveral() || (seen = receive(request)).has_value();
  };
  if (shortLook_.sees(hasCome) && seen) return std::move(*seen);
  while (true) {
    const auto readable =
        waitForInput({channel_.descriptor(), process_.get(), watch.nudge}, watch.deadline());
    if ((readable & kAnswerReadable) != 0) {
      if (auto exchange = receive(request)) return std::move(*exchange);
    } else if ((readable & kProcessEnded) != 0) {
      return died();
    }
    if ((readable & kNudged) != 0) drain(watch.nudge);
    if (const auto end = watch.judge((readable & kNudged) != 0)) return {.end = *end};
  }
}

std::optional<Decoder::Exchange> Decoder::receive(const ImageRequest& request) {
  ImageChannel::Packet packet;
  const auto receipt = channel_.receive(packet, 0);
  if (receipt == ImageChannel::Receipt::kNothingYet) return std::nullopt;
  if (receipt == ImageChannel::Receipt::kOver) {
    return isUsable() ? Exchange{.end = End::kWrong} : died();
  }
  if (const auto ended = readEnded(packet.message)) {
    return Exchange{.end = End::kDied, .waitStatus = ended->status};
  }
  const auto answer = readAnswer(packet.message);
  if (!answer || !answers(*answer, request)) return Exchange{.end = End::kWrong};
  return Exchange{.end = End::kAnswered, .answer = *answer};
}

// Only its parent knows how, and says so on the worker's socket.
Decoder::Exchange Decoder::died() {
  const auto deadline = Clock::now() + kLongestNews;
  ImageChannel::Packet packet;
  while (waitForInput({channel_.descriptor()}, deadline) != 0 &&
         channel_.receive(packet, 0) == ImageChannel::Receipt::kPacket) {
    if (const auto ended = readEnded(packet.message)) {
      return {.end = End::kDied, .waitStatus = ended->status};
    }
  }
  return {.end = End::kDied};
}

void Decoder::note(const ImageRequest& request, const ImageAnswer& answer) {
  std::erase(opened_, request.image);
  if (answer.outcome != Outcome::kDone) return;
  if (opened_.size() == kMostOpenImages) opened_.erase(opened_.begin());
  opened_.push_back(request.image);
  const auto drawn = byteCountOf(request.drawing.value_or(PixelSize{})) / 4;
  const double read = answer.naturalSize.width * answer.naturalSize.height;
  if (drawn > kManyPixels || (!isDrawing(request.format) && read > double{kManyPixels})) {
    heavy_ = request.image;
  }
}

}  // namespace kvl::interface
