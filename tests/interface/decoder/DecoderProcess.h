// The image decoder's program and its workers, as a host meets them.
#pragma once

#include "platform/interface/protocol/ImageChannel.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

using kvl::interface::Descriptor;

// Whether there is something to read within a time that only a fault takes.
[[nodiscard]] bool becomesReadable(int descriptor,
                                   std::chrono::milliseconds within = std::chrono::seconds(60));

// What the kernel says itself; 0 when it has none.
[[nodiscard]] unsigned kernelsLandlock();

struct DecoderAnswer {
  kvl::interface::ImageAnswer answer;
  kvl::Bytes pixels;
};

class DecoderWorker {
 public:
  DecoderWorker(kvl::interface::ImageChannel channel, Descriptor life,
                kvl::interface::WorkerReady ready);

  [[nodiscard]] pid_t process() const { return ready_.process; }
  [[nodiscard]] std::uint64_t number() const { return ready_.number; }
  // Readable when it has ended.
  [[nodiscard]] int life() const { return life_.get(); }

  bool send(const kvl::interface::ImageRequest& request, std::span<const int> descriptors = {});
  bool send(kvl::interface::Span message, std::span<const int> descriptors = {});
  // The next message, when it is that. Waits.
  [[nodiscard]] std::optional<DecoderAnswer> answer();
  [[nodiscard]] std::optional<kvl::interface::WorkerEnded> ended();

  [[nodiscard]] std::optional<DecoderAnswer> ask(const kvl::interface::ImageRequest& request,
                                                 std::span<const int> descriptors = {});
  // What has become of what the told decoder was told: the error's number, or what it counted. -1
  // when it has not answered.
  [[nodiscard]] int tell(std::string_view text);

  void end();

 private:
  [[nodiscard]] bool receive(kvl::interface::ImageChannel::Packet& packet);

  kvl::interface::ImageChannel channel_;
  Descriptor life_;
  kvl::interface::WorkerReady ready_;
  kvl::Bytes message_;
};

// One to open the image `image` with `bytes`, in the message.
[[nodiscard]] kvl::interface::ImageRequest openRequest(std::uint64_t image, std::string_view bytes);

class DecoderProcess {
 public:
  explicit DecoderProcess(const std::string& program,
                          std::initializer_list<std::string> arguments = {});
  ~DecoderProcess();
  DecoderProcess(const DecoderProcess&) = delete;
  DecoderProcess& operator=(const DecoderProcess&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }
  [[nodiscard]] std::optional<kvl::interface::Hello> hello();
  // None when there is no worker, see `failure`.
  [[nodiscard]] std::optional<DecoderWorker> start();
  [[nodiscard]] std::optional<kvl::interface::WorkerEnded> failure() const { return failure_; }
  bool send(kvl::interface::Span message, std::span<const int> descriptors = {});
  // What it and its workers have written to the standard error. Waits for that much, or for their
  // end.
  [[nodiscard]] std::string said(std::size_t length = ~std::size_t{0});

  void letGo() { channel_.reset(); }
  // Its status, as wait(2) tells it. Waits.
  [[nodiscard]] int status();

 private:
  std::optional<kvl::interface::ImageChannel> channel_;
  Descriptor errors_;
  pid_t process_ = -1;
  std::uint64_t workers_ = 0;
  std::optional<kvl::interface::WorkerEnded> failure_;
  std::optional<int> status_;
};

}  // namespace kvltest
