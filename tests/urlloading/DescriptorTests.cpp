// What a program inherits that the host starts while requests are under way.
#include "platform/urlloading/WakeupSockets.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

namespace kvl::testing {
namespace {

// The sockets that outlive an exec.
std::set<std::string> inheritedSockets() {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename().string());
    const int flags = fcntl(descriptor, F_GETFD);
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && target.starts_with("socket:"))
      found.insert(target);
  }
  return found;
}

class DescriptorTest : public URLSessionTest {};

TEST_F(DescriptorTest, NoSocketIsInheritedByPrograms) {
  const auto before = inheritedSockets();
  const TestTLSServer peer({.identity = &server()}, answering(httpResponse("hello")));
  for (const std::string host : {"127.0.0.1", "localhost"})
    EXPECT_EQ(load(*session, URLRequest(peer.url(host))).text(), "hello");
  EXPECT_EQ(inheritedSockets(), before);
}

TEST_F(DescriptorTest, TheHostsOwnSocketsStayAsTheyAre) {
  int own[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, own), 0);
  for (const bool isBusy : {false, true}) {
    if (isBusy) ASSERT_EQ(write(own[0], "x", 1), 1);
    CURLM* multi = curl_multi_init();
    urlloading::keepWakeupSocketsFromChildren(multi);
    curl_multi_cleanup(multi);
    for (const int descriptor : own) EXPECT_EQ(fcntl(descriptor, F_GETFD), 0);
  }
  for (const int descriptor : own) close(descriptor);
}

}  // namespace
}  // namespace kvl::testing
