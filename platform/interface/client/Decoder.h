// One worker of the decoder's program, as the host sees it: requests, answers and their limits.
#pragma once

#include "platform/interface/client/Schedule.h"
#include "platform/interface/protocol/ImageChannel.h"
#include "platform/interface/protocol/ShortLook.h"

#include <local/platform/Data.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl::interface {

// Why there is no worker.
struct DecoderProblem {
  std::string text;
  bool isTheSystems = false;  // the program is well
  bool isTheWorkers = false;  // likewise: it has ended, and another one may be had
};

// Nothing that the worker says is trusted. Whatever is not as it should be, the worker is not used
// again. One thread at a time.
class Decoder {
 public:
  using Clock = std::chrono::steady_clock;

  struct Limits {
    std::chrono::milliseconds processorTime;  // of one request
    std::chrono::milliseconds wallTime;
  };
  enum class End {
    kAnswered,
    kPutOff,         // `look` said so
    kLetGo,          // likewise
    kProcessorTime,  // above the limit
    kNoProgress,     // likewise, of wall time
    kDied,
    kWrong,   // it answered otherwise than it should
    kNotSent  // no descriptor or memory for what belongs to the request
  };
  struct Exchange {
    End end = End::kNotSent;
    ImageAnswer answer = {};
    Data pixels = {};
    std::optional<int> waitStatus = {};  // of one that died, when that is known
    bool isAlone = false;                // no other image can have to do with it
    std::chrono::nanoseconds used{0};    // of the processor's time
  };
  // Says at some time what is to become of the request, and when to ask again at the latest.
  using Look = std::function<Schedule::Judgement()>;

  // Waits for the worker behind `socket`. Null, and why in `problem`, when there is none.
  [[nodiscard]] static std::unique_ptr<Decoder> ready(Descriptor socket, std::uint64_t number,
                                                      int program, DecoderProblem& problem);
  // Ends the worker without waiting for that.
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Whether it may be given a request. Not when it has ended, or said something unasked.
  [[nodiscard]] bool isUsable() const;
  // Whether it has done so much, or left so much in its memory, that another one is to take its
  // place before it is asked for this image.
  [[nodiscard]] bool isSpent(std::uint64_t image) const;

  // Whether it has worked on other images, any of which may have done what this one suffers from.
  [[nodiscard]] bool hasWorkedOnOthers() const noexcept { return hasWorkedOnOthers_; }

  // `bytes` are sent when the worker has not opened the image. Looks when `again` has come, and
  // when `nudge` can be read. The request's number and the ways of bytes and pixels are filled in.
  [[nodiscard]] Exchange exchange(ImageRequest request, Span bytes, const Limits& limits, int nudge,
                                  Clock::time_point again, const Look& look);

  // Becomes readable when the worker has ended.
  [[nodiscard]] Descriptor releaseProcess();

 private:
  struct Watch;

  Decoder(ImageChannel channel, Descriptor process, clockid_t clock);
  [[nodiscard]] Exchange attempt(ImageRequest& request, Span bytes, Watch& watch);
  [[nodiscard]] bool send(ImageRequest& request, Span bytes, Descriptor& pixels);
  [[nodiscard]] Exchange await(const ImageRequest& request, Watch& watch);
  [[nodiscard]] std::optional<Exchange> receive(const ImageRequest& request);
  [[nodiscard]] Exchange died();
  [[nodiscard]] std::chrono::nanoseconds processorTime() const;
  void note(const ImageRequest& request, const ImageAnswer& answer);

  ImageChannel channel_;
  Descriptor process_;
  const clockid_t clock_;
  ShortLook shortLook_;
  Bytes message_;
  std::vector<std::uint64_t> opened_;  // images; the last ones last
  std::uint64_t requests_ = 0;
  std::uint64_t firstImage_ = 0;
  bool hasWorkedOnOthers_ = false;  // than the one that it works on now
  std::uint64_t heavy_ = 0;         // an image of many pixels, if there was one
};

}  // namespace kvl::interface
