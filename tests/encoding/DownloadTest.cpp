#include "tests/encoding/FetchFixture.h"
#include "tests/encoding/SlowDisk.h"
#include "tests/support/TestTLSServer.h"

#include <local/KVLEncodingDownload.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <sstream>

namespace {

using namespace kvltest;
using kvl::testing::answering;
using kvl::testing::httpResponse;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;
using KVLEncoding::DownloadOptions;
using KVLEncoding::DownloadResult;
using KVLEncoding::RelativePath;
namespace fs = std::filesystem;

std::string contentOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

void fill(const fs::path& file, std::string_view content) {
  std::ofstream(file, std::ios::binary) << content;
}

// A head that announces `length` bytes, of which none are there yet.
std::string headOf(std::size_t length) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

class DownloadTest : public FetchFixture {
 protected:
  DownloadTest() {
    std::string name = "/tmp/kvl-download-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
    target = folder / "file";
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
  }
  ~DownloadTest() override { fs::remove_all(folder); }

  // The names of all that is in the folder.
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder))
      found.push_back(entry.path().filename().string());
    std::ranges::sort(found);
    return found;
  }

  struct Pending {
    std::future<DownloadResult> result;
    kvl::Exchange exchange;
  };
  [[nodiscard]] Pending start(const TestTLSServer& server, DownloadOptions options = {}) {
    const auto promise = std::make_shared<std::promise<DownloadResult>>();
    options.queue = handlers;
    Pending pending{promise->get_future(), {}};
    pending.exchange = KVLEncoding::downloadFromSession(
        *session, RelativePath(server.url("127.0.0.1", "/x")), target,
        [promise](const DownloadResult& result) { promise->set_value(result); }, options);
    return pending;
  }
  [[nodiscard]] DownloadResult download(const TestTLSServer& server,
                                        const DownloadOptions& options = {}) {
    return start(server, options).result.get();
  }

  const std::shared_ptr<kvl::DispatchQueue> handlers = kvl::DispatchQueue::serial("handlers");
  fs::path folder;
  fs::path target;
};

TEST_F(DownloadTest, MovesTheFileAtTheEnd) {
  const std::string body(std::size_t{3} << 20, 'x');
  std::promise<void> hasLooked;
  const TestTLSServer server({}, [&](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(body.size()) + body.substr(0, 1 << 20));
    hasLooked.get_future().wait();
    peer.write(body.substr(1 << 20));
  });
  fill(target, "old");
  auto pending = start(server);
  const bool isBeside = waitUntil([this] { return names().size() == 2; });
  EXPECT_TRUE(isBeside && names()[0].starts_with(".file."));
  EXPECT_EQ(contentOf(target), "old");
  hasLooked.set_value();
  const auto result = pending.result.get();
  EXPECT_EQ(result.file, target);
  EXPECT_FALSE(result.error);
  EXPECT_FALSE(result.body);
  EXPECT_EQ(result.response->httpStatusCode, 200);
  EXPECT_EQ(contentOf(target), body);
  EXPECT_EQ(names(), (std::vector<std::string>{"file"}));
  EXPECT_TRUE(pending.exchange.isOver());
}

TEST_F(DownloadTest, LeavesNothingAfterACancel) {
  const TestTLSServer server({}, [](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(10) + "half");
    (void)peer.readRequest();
  });
  auto pending = start(server);
  ASSERT_TRUE(waitUntil([this] { return names().size() == 1; }));
  pending.exchange.cancel();
  const auto result = pending.result.get();
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_FALSE(result.file);
  EXPECT_TRUE(names().empty());
}

TEST_F(DownloadTest, LeavesNothingAfterAReset) {
  const TestTLSServer server({}, [](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(10) + "half");
    peer.reset();
  });
  const auto result = download(server);
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->domain(), kvl::NSURLErrorDomain);
  EXPECT_TRUE(names().empty());
}

TEST_F(DownloadTest, LeavesNothingAfterAFullDisk) {
  const TestTLSServer server({}, answering(httpResponse(std::string(200'000, 'x'))));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit small = before;
  small.rlim_cur = 65'536;
  setrlimit(RLIMIT_FSIZE, &small);
  const auto result = download(server);
  setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kvl::NSPOSIXErrorDomain, EFBIG)) << result.error->description();
  EXPECT_EQ(result.error->userInfo()[kvl::NSFilePathErrorKey], target.string());
  EXPECT_TRUE(names().empty());
}

TEST_F(DownloadTest, FailsWithoutTheFolderAndWaitsForNothingMore) {
  const TestTLSServer server({}, [](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(10) + "x");
    (void)peer.readRequest();
  });
  target = folder / "none" / "file";
  const auto result = download(server);
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kvl::NSPOSIXErrorDomain, ENOENT)) << result.error->description();
  EXPECT_TRUE(names().empty());
}

TEST_F(DownloadTest, NoFileHasTheNameOfAFolder) {
  const TestTLSServer server({}, answering(httpResponse("x")));
  for (const fs::path& place : {folder / "sub", folder / "sub" / "", folder / "sub" / ".."}) {
    fs::create_directory(folder / "sub");
    target = place;
    const auto result = download(server);
    ASSERT_TRUE(result.error) << place;
    EXPECT_TRUE(result.error->is(kvl::NSPOSIXErrorDomain, EISDIR)) << result.error->description();
    EXPECT_EQ(names(), (std::vector<std::string>{"sub"}));
  }
}

TEST_F(DownloadTest, ErrorStatusesLeaveTheFileAlone) {
  constexpr std::size_t kShown = std::size_t{64} << 10;
  fill(target, "old");
  for (const std::size_t size : {std::size_t{0}, kShown - 1, kShown, kShown + 1, 5 * kShown}) {
    const TestTLSServer server({}, answering(httpResponse(std::string(size, 'e'), "404 Missing")));
    const auto result = download(server);
    EXPECT_FALSE(result.error);
    EXPECT_FALSE(result.file);
    EXPECT_EQ(result.response->httpStatusCode, 404);
    ASSERT_TRUE(result.body);
    EXPECT_EQ(result.body->size(), std::min(size, kShown));
    EXPECT_EQ(contentOf(target), "old");
    EXPECT_EQ(names().size(), 1U);
  }
}

TEST_F(DownloadTest, KeepsAnExistingFileWhenAsked) {
  const TestTLSServer server({}, answering(httpResponse("new")));
  DownloadOptions options;
  options.replaces = false;
  EXPECT_EQ(download(server, options).file, target);
  fill(target, "old");
  const auto result = download(server, options);
  ASSERT_TRUE(result.error);
  EXPECT_TRUE(result.error->is(kvl::NSPOSIXErrorDomain, EEXIST)) << result.error->description();
  EXPECT_FALSE(result.file);
  EXPECT_EQ(contentOf(target), "old");
  EXPECT_EQ(names(), (std::vector<std::string>{"file"}));
}

TEST_F(DownloadTest, FollowsNoLinkAtTheTarget) {
  const TestTLSServer server({}, answering(httpResponse("new")));
  fill(folder / "other", "precious");
  fs::create_symlink("other", target);
  EXPECT_EQ(download(server).file, target);
  EXPECT_EQ(contentOf(folder / "other"), "precious");
  EXPECT_FALSE(fs::is_symlink(target));
  EXPECT_EQ(contentOf(target), "new");
}

TEST_F(DownloadTest, AFileHasThePermissionsOfNewFiles) {
  const TestTLSServer server({}, answering(httpResponse("new")));
  const mode_t before = umask(027);
  const auto result = download(server);
  umask(before);
  ASSERT_TRUE(result.file);
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0640));
}

TEST_F(DownloadTest, TheLongestNameWillDo) {
  const TestTLSServer server({}, answering(httpResponse("new")));
  target = folder / std::string(255, 'n');
  EXPECT_EQ(download(server).file, target);
  target = folder / std::string(256, 'n');
  ASSERT_TRUE(download(server).error);
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(DownloadTest, ALongNameIsCutBetweenCharacters) {
  std::promise<void> hasLooked;
  const TestTLSServer server({}, [&](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(4) + "ha");
    hasLooked.get_future().wait();
    peer.write("lf");
  });
  const std::string beginning(199, 'n');
  target = folder / (beginning + "\u00e4\u00e4");
  auto pending = start(server);
  EXPECT_TRUE(waitUntil([this] { return names().size() == 1; }));
  EXPECT_TRUE(names()[0].starts_with("." + beginning + ".")) << names()[0];
  hasLooked.set_value();
  EXPECT_EQ(pending.result.get().file, target);
}

TEST_F(DownloadTest, APartIsNotTakenForTheWhole) {
  fill(target, "old");
  const TestTLSServer server(
      {}, answering(httpResponse("part", "206 Partial Content", "Content-Range: bytes 0-3/9\r\n")));
  DownloadOptions options;
  options.headers.set("Range", "bytes=0-3");
  const auto result = download(server, options);
  EXPECT_FALSE(result.error);
  EXPECT_FALSE(result.file);
  EXPECT_EQ(result.body ? result.body->text() : "", "part");
  EXPECT_EQ(contentOf(target), "old");
}

TEST_F(DownloadTest, AnEmptyAnswerIsWhatTheOptionsSay) {
  const TestTLSServer server({}, answering(httpResponse("")));
  DownloadOptions options;
  options.emptyAnswer = kvl::RequestOptions::EmptyAnswer::error;
  const auto refused = download(server, options);
  ASSERT_TRUE(refused.error);
  EXPECT_TRUE(refused.error->is(KVLEncoding::KVLEncodingErrorDomain, 204));
  options.emptyAnswer = kvl::RequestOptions::EmptyAnswer::none;
  const auto none = download(server, options);
  EXPECT_FALSE(none.error);
  EXPECT_FALSE(none.file);
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(download(server).file, target);
  EXPECT_EQ(contentOf(target), "");
}

// 4 MiB wait for the disk, 4 MiB for the queue, and what the sockets hold.
TEST_F(DownloadTest, ASlowDiskHoldsTheServiceBack) {
  constexpr std::size_t kSize = std::size_t{64} << 20;
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  std::atomic<std::size_t> sent = 0;
  const TestTLSServer server({}, [&sent](TestPeer& peer) {
    (void)peer.readRequest();
    peer.write(headOf(kSize));
    while (sent < kSize && peer.write(std::string(kPiece, 'x'))) sent += kPiece;
  });
  auto disk = std::make_optional<SlowDisk>();
  auto pending = start(server);
  const auto received = [&] { return pending.exchange.task()->response() ? sent.load() : 0; };
  ASSERT_TRUE(waitUntil([&] { return received() > 4 * kPiece; }));
  // It has stopped when nothing more goes out for a while.
  std::size_t before = 0;
  ASSERT_TRUE(waitUntil([&] {
    const std::size_t last = std::exchange(before, sent.load());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return last == before && sent == before;
  }));
  EXPECT_LT(sent, kSize / 2);
  disk.reset();
  EXPECT_FALSE(pending.result.get().error);
  EXPECT_EQ(fs::file_size(target), kSize);
}

TEST_F(DownloadTest, IsCancelledWhileItIsMoved) {
  const TestTLSServer server({}, answering(httpResponse("content")));
  int cancelled = 0;
  for (int i = 0; i < 60; ++i) {
    fs::remove(target);
    auto pending = start(server);
    if (i % 3 == 1) (void)waitUntil([this] { return !names().empty(); });
    if (i % 3 == 2) pending.result.wait();
    std::thread([&pending] { pending.exchange.cancel(); }).join();
    const auto result = pending.result.get();
    cancelled += result.error ? 1 : 0;
    EXPECT_NE(result.file.has_value(), result.error.has_value());
    EXPECT_EQ(names().size(), result.file ? 1U : 0U);
  }
  EXPECT_GE(cancelled, 1);
  EXPECT_LE(cancelled, 40);
}

// The service has said all, and the disk has not taken it yet.
TEST_F(DownloadTest, IsCancelledAfterTheAnswer) {
  const TestTLSServer server({}, answering(httpResponse("new")));
  fill(target, "old");
  auto disk = std::make_optional<SlowDisk>();
  auto pending = start(server);
  const bool hasAnswer = waitUntil([&] {
    const auto task = pending.exchange.task();
    return task && task->state() == kvl::DataTask::State::completed;
  });
  EXPECT_TRUE(hasAnswer);
  EXPECT_FALSE(pending.exchange.isOver());
  pending.exchange.cancel();
  disk.reset();
  const auto result = pending.result.get();
  EXPECT_TRUE(result.error && result.error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_FALSE(result.file);
  EXPECT_EQ(contentOf(target), "old");
  EXPECT_EQ(names(), (std::vector<std::string>{"file"}));
}

TEST_F(DownloadTest, DestroyedFromItsOwnHandler) {
  const TestTLSServer server({}, answering(httpResponse("content")));
  std::promise<void> over;
  kvl::Exchange exchange;
  std::promise<void> isKept;
  DownloadOptions options;
  options.queue = handlers;
  exchange = KVLEncoding::downloadFromSession(
      *session, RelativePath(server.url("127.0.0.1")), target,
      [&](const DownloadResult& result) {
        isKept.get_future().wait();
        EXPECT_TRUE(result.file);
        exchange.cancel();
        exchange = {};
        session->setSession(nullptr);
        over.set_value();
      },
      options);
  isKept.set_value();
  over.get_future().wait();
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(DownloadTest, ARefusalComesOnTheMainQueueAndLater) {
  disconnect();
  std::optional<DownloadResult> result;
  KVLEncoding::downloadFromSession(*session, RelativePath("x"), target,
                                   [&](const DownloadResult& given) { result = given; });
  EXPECT_FALSE(result);
  runMainLoopUntil([&] { return result.has_value(); });
  EXPECT_TRUE(result->error);
  EXPECT_TRUE(names().empty());
}

TEST_F(DownloadTest, ASessionObjectOfTheHostsGivesOnePiece) {
  session->setSession(loader);
  std::optional<DownloadResult> result;
  KVLEncoding::downloadFromSession(*session, RelativePath("x"), target,
                                   [&](const DownloadResult& given) { result = given; });
  answer("content");
  runMainLoopUntil([&] { return result.has_value(); });
  EXPECT_EQ(contentOf(target), "content");
}

TEST_F(DownloadTest, WithoutAHandlerErrorsAreLogged) {
  session->setSession(loader);
  KVLEncoding::downloadFromSession(*session, RelativePath("x"), target, nullptr);
  task().fail(kLostConnection);
  runMainLoopUntil([this] { return log.count("download error: ") > 0; });
  EXPECT_TRUE(names().empty());
}

}  // namespace
