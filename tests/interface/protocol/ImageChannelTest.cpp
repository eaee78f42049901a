#include "platform/interface/protocol/ImageChannel.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/Pipe.h"
#include "tests/support/ProcessFigures.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string_view>
#include <vector>

namespace {

using kvl::Bytes;
using kvl::interface::Descriptor;
using kvl::interface::ImageChannel;
using kvl::interface::kLongestMessage;
using Packet = ImageChannel::Packet;
using Receipt = ImageChannel::Receipt;

class ImageChannelTest : public testing::Test {
 protected:
  ImageChannelTest() : ImageChannelTest(ImageChannel::makePair().value()) {}

  // What may be wrong with a packet, which `ImageChannel` sends never.
  void sendRaw(std::size_t length, const std::vector<int>& descriptors = {}) const {
    Bytes bytes(length, 1);
    std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
    iovec part{bytes.data(), bytes.size()};
    msghdr head{};
    head.msg_iov = &part;
    head.msg_iovlen = 1;
    if (!descriptors.empty()) {
      head.msg_control = control.data();
      head.msg_controllen = control.size();
      cmsghdr* const rights = CMSG_FIRSTHDR(&head);
      rights->cmsg_level = SOL_SOCKET;
      rights->cmsg_type = SCM_RIGHTS;
      rights->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
      std::copy(descriptors.begin(), descriptors.end(), reinterpret_cast<int*>(CMSG_DATA(rights)));
    }
    ASSERT_EQ(sendmsg(a_.descriptor(), &head, MSG_NOSIGNAL), static_cast<ssize_t>(length));
  }

  ImageChannel a_;
  ImageChannel b_;
  Packet packet_;

 private:
  explicit ImageChannelTest(std::pair<Descriptor, Descriptor> pair)
      : a_(std::move(pair.first)), b_(std::move(pair.second)) {}
};

bool isOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(DescriptorTest, ClosesWhatItOwnsOnce) {
  const int number = dup(STDIN_FILENO);
  {
    Descriptor first(number);
    Descriptor second(std::move(first));
    EXPECT_EQ(second.get(), number);
    EXPECT_TRUE(isOpen(number));
    Descriptor third;
    EXPECT_FALSE(third);
    third = std::move(second);
    EXPECT_TRUE(third);
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(DescriptorTest, ClosesWhatItHadBefore) {
  const int before = dup(STDIN_FILENO);
  Descriptor descriptor(before);
  descriptor = Descriptor(dup(STDIN_FILENO));
  EXPECT_FALSE(isOpen(before));
  const int released = descriptor.release();
  EXPECT_TRUE(isOpen(released));
  EXPECT_FALSE(descriptor);
  close(released);
}

TEST_F(ImageChannelTest, PacketsArriveOneByOneInTheirOrder) {
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kNothingYet);
  EXPECT_TRUE(a_.send(Bytes{1, 2, 3}));
  EXPECT_TRUE(a_.send(Bytes(kLongestMessage, 4)));
  ASSERT_EQ(b_.receive(packet_, 0), Receipt::kPacket);
  EXPECT_EQ(Bytes(packet_.message.begin(), packet_.message.end()), (Bytes{1, 2, 3}));
  ASSERT_EQ(b_.receive(packet_, 0), Receipt::kPacket);
  EXPECT_EQ(packet_.message.size(), kLongestMessage);
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kNothingYet);
}

TEST_F(ImageChannelTest, BothEndsCloseOnExecAndDoNotBlock) {
  for (const int end : {a_.descriptor(), b_.descriptor()}) {
    EXPECT_NE(fcntl(end, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(end, F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST_F(ImageChannelTest, DescriptorsArriveInTheirOrder) {
  const kvltest::Pipe first;
  const kvltest::Pipe second;
  const int sent[] = {first.writeEnd(), second.writeEnd()};
  ASSERT_TRUE(a_.send(Bytes{1}, sent));
  const auto before = kvltest::descriptorCount();
  ASSERT_EQ(b_.receive(packet_, 2), Receipt::kPacket);
  ASSERT_EQ(packet_.count, 2U);
  EXPECT_EQ(kvltest::descriptorCount(), before + 2);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_NE(fcntl(packet_.descriptors.at(i).get(), F_GETFD) & FD_CLOEXEC, 0);
  }
  ASSERT_EQ(write(packet_.descriptors[0].get(), "a\n", 2), 2);
  ASSERT_EQ(write(packet_.descriptors[1].get(), "b\n", 2), 2);
  packet_ = {};
  EXPECT_EQ(kvltest::descriptorCount(), before);
  EXPECT_EQ(const_cast<kvltest::Pipe&>(first).readLine(), "a");
  EXPECT_EQ(const_cast<kvltest::Pipe&>(second).readLine(), "b");
}

TEST_F(ImageChannelTest, MoreDescriptorsThanAMessageHasAreNotSent) {
  const int three[] = {0, 1, 2};
  EXPECT_FALSE(a_.send(Bytes{1}, three));
  EXPECT_EQ(b_.receive(packet_, 2), Receipt::kNothingYet);
}

TEST_F(ImageChannelTest, NoDescriptorIsLostOnAnyFailure) {
  const kvltest::Pipe pipe;
  const int end = pipe.writeEnd();
  const struct {
    std::size_t length;
    std::size_t descriptors;
    std::size_t most;
  } cases[] = {{1, 1, 0},
               {1, 2, 0},
               {1, 2, 1},
               {1, 3, 2},
               {1, 9, 2},
               {1, 3, 0},
               {kLongestMessage + 1, 1, 1}};
  const auto before = kvltest::descriptorCount();
  for (const auto& [length, descriptors, most] : cases) {
    sendRaw(length, std::vector<int>(descriptors, end));
    EXPECT_EQ(b_.receive(packet_, most), Receipt::kOver) << descriptors << " of " << most;
    EXPECT_EQ(packet_.count, 0U);
    EXPECT_TRUE(packet_.message.empty());
    EXPECT_EQ(kvltest::descriptorCount(), before) << descriptors << " of " << most;
  }
}

TEST_F(ImageChannelTest, DescriptorsOfEarlierPacketsAreClosed) {
  const kvltest::Pipe pipe;
  const int end = pipe.writeEnd();
  const auto before = kvltest::descriptorCount();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(a_.send(Bytes{1}, {&end, 1}));
    ASSERT_EQ(b_.receive(packet_, 1), Receipt::kPacket);
    EXPECT_EQ(kvltest::descriptorCount(), before + 1);
  }
  EXPECT_EQ(b_.receive(packet_, 1), Receipt::kNothingYet);
  EXPECT_EQ(kvltest::descriptorCount(), before);
}

TEST_F(ImageChannelTest, ACutPacketEndsThePeer) {
  sendRaw(kLongestMessage);
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kPacket);
  sendRaw(kLongestMessage + 1);
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kOver);
  sendRaw(0);
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kOver);
}

TEST_F(ImageChannelTest, WithoutDescriptorsToReceiveThemAPacketIsOver) {
  const kvltest::Pipe pipe;
  const int end = pipe.writeEnd();
  ASSERT_TRUE(a_.send(Bytes{1}, {&end, 1}));
  const kvltest::NoDescriptors none;
  EXPECT_EQ(b_.receive(packet_, 1), Receipt::kOver);
  EXPECT_FALSE(ImageChannel::makePair());
}

TEST_F(ImageChannelTest, TheOthersEndIsToldAndRaisesNoSignal) {
  ASSERT_TRUE(a_.send(Bytes{1}));
  a_ = ImageChannel(Descriptor());
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kPacket);
  EXPECT_EQ(b_.receive(packet_, 0), Receipt::kOver);
  const auto before = std::signal(SIGPIPE, SIG_DFL);
  EXPECT_FALSE(b_.send(Bytes{1}));
  std::signal(SIGPIPE, before);
}

TEST_F(ImageChannelTest, AFullBufferIsToldAndLosesNothing) {
  const Bytes message(kLongestMessage, 1);
  int sent = 0;
  while (a_.send(message)) ++sent;
  ASSERT_GT(sent, 2);
  int received = 0;
  while (b_.receive(packet_, 0) == Receipt::kPacket) ++received;
  EXPECT_EQ(received, sent);
  EXPECT_TRUE(a_.send(message));
}

}  // namespace
