// The decoder's program: where it lies, its start, its workers' sockets and its end.
#pragma once

#include "platform/interface/protocol/ImageChannel.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl::interface {

// Where the program may lie: beside this library, or beside the programs of a build tree. Absolute,
// and the same whichever folder the process is in; none when this library's own file is unknown.
[[nodiscard]] std::vector<std::filesystem::path> decoderPlaces();

// Waits until one of the descriptors can be read or `deadline` has passed. A bit for each that can,
// the first one's lowest; negative ones are passed over.
[[nodiscard]] unsigned waitForInput(std::initializer_list<int> descriptors,
                                    std::chrono::steady_clock::time_point deadline);

// A process of its own, which bears workers and sees no image itself. It ends with this object, and
// with the host whatever becomes of this. One thread at a time.
class DecoderProgram {
 public:
  // Starts the first of `places` that exists and waits for its greeting. Relative ones are passed
  // over: they would mean whatever lies in the working directory. Null, and why in `problem`, when
  // that fails.
  [[nodiscard]] static std::unique_ptr<DecoderProgram> start(
      const std::vector<std::filesystem::path>& places, std::string& problem);
  // Waits for the process, which sees at once that nobody speaks to it any more.
  ~DecoderProgram();
  DecoderProgram(const DecoderProgram&) = delete;
  DecoderProgram& operator=(const DecoderProgram&) = delete;

  // What the system lacks for confining the workers.
  [[nodiscard]] const Hello& hello() const noexcept { return hello_; }
  // Becomes readable when the process has ended.
  [[nodiscard]] int process() const noexcept { return process_.get(); }
  // The host's end of the socket of a new worker, which is on its way. None, and why in `problem`.
  [[nodiscard]] std::optional<Descriptor> startWorker(std::uint64_t number, std::string& problem);

 private:
  DecoderProgram(Descriptor control, Descriptor process)
      : control_(std::in_place, std::move(control)), process_(std::move(process)) {}
  [[nodiscard]] bool hearHello(const std::string& file, std::string& problem);

  std::optional<ImageChannel> control_;  // until the end
  Descriptor process_;
  Hello hello_;
};

}  // namespace kvl::interface
