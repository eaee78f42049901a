// Bodies of any size in memory that does not grow with them, and their rate beside bare libcurl
// with the same server. Ends with a failure when the memory grows.
#include "bench/Measurement.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SilentNotary.h"
#include "tests/support/TestTLSServer.h"

#include <local/KVLEncodingDownload.h>
#include <local/platform/BodySource.h>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>

namespace {

using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;
using kvlbench::wallSeconds;

constexpr std::size_t kBlock = std::size_t{256} << 10;
constexpr double kMostGrowth = 16.0 * (1 << 20);

void fail(const std::string& why) {
  std::fprintf(stderr, "%s\n", why.c_str());
  std::exit(1);
}

// Takes what a PUT brings, and answers a GET of `/COUNT` with so many bytes.
void serve(TestPeer& peer) {
  const std::string block(kBlock, 'x');
  for (;;) {
    std::string head;
    while (!head.ends_with("\r\n\r\n")) {
      const std::string byte = peer.read(1);
      if (byte.empty()) return;
      head += byte;
    }
    const bool brings = head.starts_with("PUT");
    const auto number = head.find(brings ? "Content-Length: " : "/");
    std::size_t left = std::stoull(head.substr(number + (brings ? 16 : 1)));
    if (!brings)
      peer.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(left) + "\r\n\r\n");
    while (left > 0) {
      const std::size_t count = std::min(left, kBlock);
      if (brings ? peer.read(count).size() < count
                 : !peer.write(std::string_view(block).substr(0, count)))
        return;
      left -= count;
    }
    if (brings) peer.write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  }
}

class World {
 public:
  World() {
    std::string name = "/tmp/kvl-streaming-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) fail("no folder");
    folder_ = name;
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    loader = kvl::URLSession::create(configuration, session);
    session->setSession(loader);
    auto signature = std::make_shared<KVLNotarySignature>();
    signature->setBaseURL(kvl::URL::parse(server.url("127.0.0.1")));
    session->setSignature(std::move(signature));
  }
  ~World() {
    session->setSession(nullptr);
    std::filesystem::remove_all(folder_);
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  [[nodiscard]] std::string url(std::size_t size) const {
    return server.url("127.0.0.1", "/" + std::to_string(size));
  }
  [[nodiscard]] std::filesystem::path file(const char* name) const { return folder_ / name; }

  const TestTLSServer server{{}, serve};
  const std::shared_ptr<KVLSession> session =
      KVLSession::sessionWithNotary(std::make_shared<kvltest::SilentNotary>(), {});
  std::shared_ptr<kvl::URLSession> loader;

 private:
  std::filesystem::path folder_;
};

// A body that nobody holds.
class Zeros final : public kvl::BodySource {
 public:
  explicit Zeros(std::size_t size) : size_(size) {}
  [[nodiscard]] std::optional<std::uint64_t> length() const override { return size_; }
  [[nodiscard]] std::size_t read(std::span<std::uint8_t> room,
                                 std::optional<kvl::Error>* /*error*/) override {
    const std::size_t count = std::min(room.size(), size_ - done_);
    std::fill_n(room.begin(), count, std::uint8_t{0});
    done_ += count;
    return count;
  }
  [[nodiscard]] bool rewind() override {
    done_ = 0;
    return true;
  }

 private:
  const std::size_t size_;
  std::size_t done_ = 0;
};

void put(World& world, std::size_t size, std::shared_ptr<kvl::BodySource> source) {
  kvl::URLRequest request(world.url(size));
  request.setMethod("PUT");
  request.setBodySource(std::move(source));
  std::promise<std::optional<kvl::Error>> over;
  const auto task = world.loader->dataTask(
      request, [&over](const auto&, const auto&, const std::optional<kvl::Error>& error) {
        over.set_value(error);
      });
  task->resume();
  if (const auto error = over.get_future().get()) fail(error->description());
}

void fromASource(World& world, std::size_t size) {
  put(world, size, std::make_shared<Zeros>(size));
}

void fromAFile(World& world, std::size_t size) {
  const auto file = world.file("source");
  std::ofstream(file).close();
  std::filesystem::resize_file(file, size);
  put(world, size, kvl::fileBody(file));
}

void inPieces(World& world, std::size_t size) {
  std::size_t received = 0;
  std::promise<std::optional<kvl::Error>> over;
  const auto task = world.loader->streamingTask(
      kvl::URLRequest(world.url(size)),
      {.head = {},
       .piece = [&received](const kvl::Data& piece) { received += piece.size(); },
       .end = [&over](const auto&,
                      const std::optional<kvl::Error>& error) { over.set_value(error); }});
  task->resume();
  if (const auto error = over.get_future().get()) fail(error->description());
  if (received != size) fail("not all of it came");
}

void intoAFile(World& world, std::size_t size) {
  const auto file = world.file("target");
  std::promise<std::optional<kvl::Error>> over;
  KVLEncoding::DownloadOptions options;
  options.queue = kvl::DispatchQueue::serial("bench");
  KVLEncoding::downloadFromSession(
      *world.session, KVLEncoding::RelativePath(world.url(size)), file,
      [&over](const KVLEncoding::DownloadResult& result) { over.set_value(result.error); },
      options);
  if (const auto error = over.get_future().get()) fail(error->description());
  if (std::filesystem::file_size(file) != size) fail("not all of it came");
  std::filesystem::remove(file);
}

// Only libcurl and, for a download, a file.
void bare(World& world, std::size_t size, bool isUpload, std::FILE* target) {
  CURL* easy = curl_easy_init();
  const std::string url = world.url(size);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
  // Otherwise an upload waits a second for leave to begin.
  curl_slist* fields = curl_slist_append(nullptr, "Expect:");
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, fields);
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, static_cast<long>(kBlock));
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, target);
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* file) {
        return file == nullptr ? count
                               : std::fwrite(bytes, 1, count, static_cast<std::FILE*>(file));
      });
  std::size_t left = size;
  if (isUpload) {
    curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(kBlock));
    curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
    curl_easy_setopt(easy, CURLOPT_READDATA, &left);
    curl_easy_setopt(
        easy, CURLOPT_READFUNCTION, +[](char* room, std::size_t, std::size_t most, void* rest) {
          auto& missing = *static_cast<std::size_t*>(rest);
          const std::size_t count = std::min(most, missing);
          std::fill_n(room, count, '\0');
          missing -= count;
          return count;
        });
  }
  const CURLcode code = curl_easy_perform(easy);
  curl_easy_cleanup(easy);
  curl_slist_free_all(fields);
  if (code != CURLE_OK) fail(curl_easy_strerror(code));
}

void bareUpload(World& world, std::size_t size) {
  bare(world, size, true, nullptr);
}
void bareAnswer(World& world, std::size_t size) {
  bare(world, size, false, nullptr);
}
void bareDownload(World& world, std::size_t size) {
  const auto file = world.file("bare");
  std::FILE* target = std::fopen(file.c_str(), "w");
  bare(world, size, false, target);
  std::fclose(target);
  std::filesystem::remove(file);
}

using Way = void (*)(World&, std::size_t);

void stream(benchmark::State& state, Way subject, Way peer) {
  World world;
  const auto size = static_cast<std::size_t>(state.range(0)) << 20;
  const auto timed = [&](Way way, std::size_t bytes) {
    const double start = wallSeconds();
    way(world, bytes);
    return wallSeconds() - start;
  };
  // What is made once is no growth.
  timed(subject, std::size_t{1} << 20);
  timed(peer, std::size_t{1} << 20);
  double growth = 0;
  const auto times = kvlbench::measure(
      state, [&] { return timed(peer, size); },
      [&] {
        double time = 0;
        growth = std::max(growth, kvlbench::peakMemoryOf([&] { time = timed(subject, size); }));
        return time;
      });
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
  state.counters["memory_growth_MiB"] = growth / (1 << 20);
  state.counters["rate_of_libcurl"] = times.peer / times.subject;
  if (growth > kMostGrowth && !kvltest::kSanitized)
    fail("the memory grew with the body: " + std::to_string(growth / (1 << 20)) + " MiB");
}

void ofSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(64)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
}

BENCHMARK_CAPTURE(stream, fromASource, fromASource, bareUpload)->Apply(ofSizes);
BENCHMARK_CAPTURE(stream, fromAFile, fromAFile, bareUpload)->Apply(ofSizes);
BENCHMARK_CAPTURE(stream, inPieces, inPieces, bareAnswer)->Apply(ofSizes);
BENCHMARK_CAPTURE(stream, intoAFile, intoAFile, bareDownload)->Apply(ofSizes);

}  // namespace

BENCHMARK_MAIN();
