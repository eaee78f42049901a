#include "tests/interface/decoder/DecoderProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace kvltest {
namespace {

using kvl::interface::Hello;
using kvl::interface::ImageChannel;
using kvl::interface::ImageRequest;
using kvl::interface::Span;
using kvl::interface::WorkerEnded;
using kvl::interface::WorkerReady;

bool receiveFrom(ImageChannel& channel, ImageChannel::Packet& packet, std::size_t descriptors) {
  while (becomesReadable(channel.descriptor())) {
    const auto receipt = channel.receive(packet, descriptors);
    if (receipt != ImageChannel::Receipt::kNothingYet) {
      return receipt == ImageChannel::Receipt::kPacket;
    }
  }
  return false;
}

pid_t spawn(const std::string& program, std::initializer_list<std::string> arguments, int socket,
            int errors) {
  std::vector<char*> texts{const_cast<char*>(program.c_str())};
  for (const auto& argument : arguments) texts.push_back(const_cast<char*>(argument.c_str()));
  texts.push_back(nullptr);
  std::array<char*, 3> environment{const_cast<char*>("LC_ALL=C.UTF-8"),
                                   const_cast<char*>("HOME=/nonexistent"), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, errors, 2);
  posix_spawn_file_actions_adddup2(&actions, socket, 3);
  posix_spawn_file_actions_addclosefrom_np(&actions, 4);
  pid_t process = -1;
  const int error =
      posix_spawn(&process, program.c_str(), &actions, nullptr, texts.data(), environment.data());
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

}  // namespace

bool becomesReadable(int descriptor, std::chrono::milliseconds within) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, static_cast<int>(within.count())) == 1;
}

unsigned kernelsLandlock() {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0L, 1U);
  return version > 0 ? static_cast<unsigned>(version) : 0;
}

ImageRequest openRequest(std::uint64_t image, std::string_view bytes) {
  ImageRequest request;
  request.number = image;
  request.image = image;
  request.format = kvl::interface::ImageFormat::kSVG;
  request.byteCount = bytes.size();
  request.inlineBytes = {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
  return request;
}

DecoderWorker::DecoderWorker(ImageChannel channel, Descriptor life, WorkerReady ready)
    : channel_(std::move(channel)), life_(std::move(life)), ready_(ready) {}

bool DecoderWorker::send(const ImageRequest& request, std::span<const int> descriptors) {
  write(request, message_);
  return channel_.send(message_, descriptors);
}

bool DecoderWorker::send(Span message, std::span<const int> descriptors) {
  return channel_.send(message, descriptors);
}

bool DecoderWorker::receive(ImageChannel::Packet& packet) {
  return receiveFrom(channel_, packet, 0);
}

std::optional<DecoderAnswer> DecoderWorker::answer() {
  ImageChannel::Packet packet;
  if (!receive(packet)) return {};
  const auto answer = kvl::interface::readAnswer(packet.message);
  if (!answer) return {};
  const auto& pixels = answer->inlinePixels;
  return DecoderAnswer{*answer, kvl::Bytes(pixels.begin(), pixels.end())};
}

std::optional<WorkerEnded> DecoderWorker::ended() {
  ImageChannel::Packet packet;
  if (!receive(packet)) return {};
  return kvl::interface::readEnded(packet.message);
}

std::optional<DecoderAnswer> DecoderWorker::ask(const ImageRequest& request,
                                                std::span<const int> descriptors) {
  if (!send(request, descriptors)) return {};
  auto answered = answer();
  if (answered && !answers(answered->answer, request)) return {};
  return answered;
}

int DecoderWorker::tell(std::string_view text) {
  const auto answered = ask(openRequest(1'000'000, "TELL " + std::string(text)));
  if (!answered || answered->answer.outcome != kvl::interface::Outcome::kDone) return -1;
  return static_cast<int>(answered->answer.naturalSize.width) - 1;
}

void DecoderWorker::end() {
  syscall(SYS_pidfd_send_signal, life_.get(), SIGKILL, nullptr, 0);
}

DecoderProcess::DecoderProcess(const std::string& program,
                               std::initializer_list<std::string> arguments) {
  auto ends = ImageChannel::makePair();
  std::array<int, 2> pipe{};
  if (!ends || pipe2(pipe.data(), O_CLOEXEC) != 0) return;
  errors_ = Descriptor(pipe[0]);
  const Descriptor errors(pipe[1]);
  channel_.emplace(std::move(ends->first));
  process_ = spawn(program, arguments, ends->second.get(), errors.get());
}

DecoderProcess::~DecoderProcess() {
  letGo();
  static_cast<void>(status());
}

std::optional<Hello> DecoderProcess::hello() {
  ImageChannel::Packet packet;
  if (!receiveFrom(*channel_, packet, 0)) return {};
  return kvl::interface::readHello(packet.message);
}

std::optional<DecoderWorker> DecoderProcess::start() {
  auto ends = ImageChannel::makePair();
  if (!ends) return {};
  kvl::Bytes message;
  write(kvl::interface::Start{++workers_}, message);
  const int theirs = ends->second.get();
  if (!send(message, {&theirs, 1})) return {};
  ends->second = Descriptor();
  ImageChannel channel(std::move(ends->first));
  ImageChannel::Packet packet;
  if (!receiveFrom(channel, packet, 1)) return {};
  failure_ = kvl::interface::readEnded(packet.message);
  const auto ready = kvl::interface::readReady(packet.message, packet.count);
  if (!ready) return {};
  return DecoderWorker(std::move(channel), std::move(packet.descriptors[0]), *ready);
}

bool DecoderProcess::send(Span message, std::span<const int> descriptors) {
  return channel_ && channel_->send(message, descriptors);
}

std::string DecoderProcess::said(std::size_t length) {
  std::string text;
  std::array<char, 256> piece{};
  while (text.size() < length && becomesReadable(errors_.get())) {
    const auto count = read(errors_.get(), piece.data(), piece.size());
    if (count <= 0) break;
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
  return text;
}

int DecoderProcess::status() {
  if (status_) return *status_;
  const Descriptor life(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
  if (!becomesReadable(life.get())) kill(process_, SIGKILL);
  int status = -1;
  waitpid(process_, &status, 0);
  status_ = status;
  return status;
}

}  // namespace kvltest
