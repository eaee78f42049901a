// Any packet as the answer to a request that the first bytes make: it is taken only when every
// field of it is as was asked for.
#include "fuzz/Choices.h"
#include "fuzz/Fields.h"
#include "platform/interface/protocol/ImageMessage.h"

#include <array>
#include <cmath>

namespace {

using kvl::Bytes;
using kvl::fuzz::at;
using kvl::fuzz::Choices;
using kvl::fuzz::require;
namespace image = kvl::interface;

constexpr std::array<std::uint32_t, 6> kSides{1, 2, 16, 64, 255, 65'535};

image::ImageRequest madeRequest(Choices& choices) {
  image::ImageRequest request;
  request.number = choices.byte();
  request.image = choices.byte() | 1U;
  request.byteCount = choices.byte();
  if (choices.yes()) request.drawing = image::PixelSize{choices.of(kSides), choices.of(kSides)};
  request.pixelsInFile =
      request.drawing && image::byteCountOf(*request.drawing) > image::kInlineBytes;
  return request;
}

// The answer as a decoder should send it, to be changed from there.
Bytes rightAnswer(const image::ImageRequest& request) {
  const auto size = request.drawing.value_or(image::PixelSize{});
  const Bytes pixels(request.pixelsInFile ? 0 : image::byteCountOf(size), 5);
  image::ImageAnswer answer;
  answer.number = request.number;
  answer.image = request.image;
  answer.outcome = image::Outcome::kDone;
  answer.naturalSize = {32, 16};
  answer.pixelSize = size;
  answer.inlinePixels = pixels;
  Bytes message;
  write(answer, message);
  return message;
}

void change(Bytes& message, Choices& choices) {
  while (choices.left()) {
    const auto place = choices.number(2) % message.size();
    message[place] = choices.byte();
  }
}

Bytes packetFrom(const image::ImageRequest& request, Choices& choices) {
  if (choices.yes()) {
    auto message = rightAnswer(request);
    require(image::readAnswer(message) && answers(*image::readAnswer(message), request),
            "a right answer is taken");
    change(message, choices);
    return message;
  }
  const auto rest = choices.rest();
  return {rest.begin(), rest.end()};
}

bool isNaturalSide(double side) {
  return std::isfinite(side) && side > 0 && side <= 65'535;
}

// Another reading of the packet.
void checkTaken(const Bytes& packet, const image::ImageRequest& request) {
  require(packet.size() >= 64 && at<std::uint32_t>(packet, 0) == packet.size(),
          "its length is right");
  require(at<std::uint16_t>(packet, 4) == image::kProtocolVersion, "its version is right");
  require(at<std::uint16_t>(packet, 6) == 2, "it is an answer");
  require(at<std::uint64_t>(packet, 8) == request.number, "it is of the request");
  require(at<std::uint64_t>(packet, 16) == request.image, "it is of the image");
  require(at<std::uint32_t>(packet, 24) <= 5, "there is such an outcome");
  const bool isDone = at<std::uint32_t>(packet, 24) == 0;
  const auto asked = isDone && request.drawing ? *request.drawing : image::PixelSize{};
  require(at<std::uint32_t>(packet, 48) == asked.width, "it is as wide as was asked for");
  require(at<std::uint32_t>(packet, 52) == asked.height, "it is as high as was asked for");
  const auto pixels = request.pixelsInFile ? 0 : std::size_t{asked.width} * asked.height * 4;
  require(packet.size() == 64 + pixels, "it has as many pixels as were asked for");
  require(
      !isDone || (isNaturalSide(at<double>(packet, 32)) && isNaturalSide(at<double>(packet, 40))),
      "its size is within the limits");
}

// What else comes over the sockets.
void checkOthers(const Bytes& packet) {
  Bytes again;
  if (const auto ready = image::readReady(packet, 1)) {
    write(*ready, again);
    require(again == packet && ready->process > 0, "a worker is a process");
  }
  if (const auto ended = image::readEnded(packet)) {
    write(*ended, again);
    require(again == packet, "an end is written as it was read");
  }
  if (const auto hello = image::readHello(packet)) {
    write(*hello, again);
    require(again == packet && hello->lacks < 16, "a greeting is written as it was read");
  }
}

void checkAnswer(kvl::fuzz::Input input) {
  Choices choices(input);
  const auto request = madeRequest(choices);
  const auto packet = packetFrom(request, choices);
  checkOthers(packet);
  const auto answer = image::readAnswer(packet);
  if (!answer) return;
  Bytes again;
  write(*answer, again);
  require(again == packet, "it is written as it was read");
  if (answers(*answer, request)) checkTaken(packet, request);
}

const kvl::fuzz::Target imageAnswer("imageanswer", checkAnswer);

}  // namespace
