// Which refused system calls the decoders make: those that are known, after which they go on.
#include "platform/interface/protocol/ImageFormat.h"
#include "tests/interface/MadeImages.h"
#include "tests/interface/decoder/DecoderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <seccomp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using kvl::interface::Outcome;
using kvl::interface::PixelSize;
using kvltest::DecoderProcess;

// The names of the system calls that a decoder has reported.
std::set<std::string> namesIn(const std::string& report) {
  std::set<std::string> names;
  std::istringstream lines(report);
  for (std::string line; std::getline(lines, line);) {
    if (line == "text") continue;
    char* const name = seccomp_syscall_resolve_num_arch(SCMP_ARCH_NATIVE, std::stoi(line));
    names.insert(name == nullptr ? line : name);
    std::free(name);
  }
  return names;
}

std::vector<kvl::Data> images() {
  std::vector<kvl::Data> images;
  for (auto& made : kvltest::madeImages()) images.push_back(std::move(made.data));
  for (const char* elements :
       {"<text y='9'>text</text>",
        "<filter id='f'><feDiffuseLighting><feDistantLight azimuth='9'/></feDiffuseLighting>"
        "</filter><rect filter='url(#f)' width='32' height='16'/>",
        "<image href='/etc/passwd' width='9' height='9'/>"}) {
    images.push_back(kvltest::writtenSVG("width='32' height='16'", elements));
  }
  images.push_back(kvltest::writtenPDF("0 0 32 16", "BT /F 9 Tf (text) Tj ET"));
  return images;
}

TEST(SystemCallTest, DecodersMakeNoCallThatIsRefusedButThoseThatAreKnown) {
  // Fonts that nothing has listed yet are listed in a file that cannot be written.
  const std::set<std::string> known{"openat"};
  std::string report;
  {
    DecoderProcess decoder(KVL_TOLD_DECODER, {"--trap"});
    ASSERT_TRUE(decoder.hello());
    auto worker = decoder.start();
    ASSERT_TRUE(worker);
    std::uint64_t number = 0;
    for (const auto& image : images()) {
      auto request = kvltest::openRequest(++number, image.text());
      request.format = kvl::interface::imageFormatOf(image.bytes());
      request.drawing = PixelSize{32, 16};
      const auto answered = worker->ask(request);
      ASSERT_TRUE(answered) << number;
      EXPECT_EQ(answered->answer.outcome, Outcome::kDone) << number;
    }
    EXPECT_EQ(worker->tell("tcp"), EPERM) << "with an error, as without a trap";
    worker->end();
    decoder.letGo();
    report = decoder.said();
  }
  auto names = namesIn(report);
  EXPECT_EQ(names.erase("socket"), 1U) << "what is refused is reported";
  for (const auto& name : known) names.erase(name);
  EXPECT_THAT(names, testing::IsEmpty());
}

// What Landlock would refuse as well.
class SystemCallFilterTest : public kvltest::DecoderFixture {
 protected:
  SystemCallFilterTest() : DecoderFixture({"--without", "landlock"}) {}
};

TEST_F(SystemCallFilterTest, RefusesByItself) {
  const auto host = std::to_string(getpid());
  for (const auto& what : {"kill " + host, "kill-thread " + host, "write " + secret(),
                           "make " + secret(), "remove " + secret(), std::string("tcp")}) {
    EXPECT_EQ(tell(what), EPERM) << what;
  }
  EXPECT_EQ(tell("open " + secret()), 0) << "which only Landlock can tell from fonts";
}

}  // namespace
