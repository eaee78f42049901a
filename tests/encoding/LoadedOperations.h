// Every fetch and submission, downloads and forms in pieces included, and a server for them.
#pragma once

#include "tests/encoding/MultipartSupport.h"
#include "tests/encoding/OpenFile.h"
#include "tests/encoding/Operations.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/TestTLSServer.h"

#include <local/KVLEncodingDownload.h>

#include <stdlib.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {

// Whose requests go to a real server, and whose handlers run where the test says.
class LoadedFetch : public FetchFixture, public testing::WithParamInterface<AnyOperation> {
 protected:
  LoadedFetch() {
    std::string name = "/tmp/kvl-loaded-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
    load();
  }
  ~LoadedFetch() override { std::filesystem::remove_all(folder); }

  // Has the session load from here on.
  void load() const {
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
  }
  [[nodiscard]] kvl::Exchange start(const kvl::testing::TestTLSServer& server) {
    session->setSignature(signatureFor(server.url("127.0.0.1")));
    return GetParam().start(*session, outcome, {.queue = home});
  }
  // Calls the handler once the outcome is there.
  void finish() const {
    ASSERT_TRUE(waitUntil([this] { return home->pendingCount() > 0; }));
    home->runDue();
  }
  // One operation is silent about what is no success; the log has it then.
  void expectCancelled() const {
    const bool isTold = GetParam().name != "RequiredObject";
    EXPECT_EQ(outcome.calls, isTold ? 1 : 0);
    if (isTold) {
      EXPECT_TRUE(outcome.isCancelled());
    } else {
      EXPECT_EQ(log.count("request error: Error Domain=NSURLErrorDomain Code=-999"), 1U);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "a part of a download has stayed";
  }

  // Where downloads go.
  static inline std::filesystem::path folder;
  AnyOutcome outcome;
  const std::shared_ptr<DrivenQueue> home = std::make_shared<DrivenQueue>();

 public:
  static kvl::Exchange download(KVLSession& session, AnyOutcome& outcome,
                                const kvl::RequestOptions& options) {
    return KVLEncoding::downloadFromSession(
        session, KVLEncoding::RelativePath("a"), folder / "file",
        [&outcome](const KVLEncoding::DownloadResult& result) {
          outcome.note(result.file, result.response, result.error);
        },
        {options});
  }
  static kvl::Exchange sendInPieces(KVLSession& session, AnyOutcome& outcome,
                                    const kvl::RequestOptions& options) {
    const OpenFile file("content of the file");
    KVLEncoding::FormOptions all{options};
    all.streamsFiles = true;
    const std::shared_ptr<kvl::Object> input =
        KVLInputFile::newWithDescriptor("f", "t/t", file.descriptor());
    return KVLEncoding::submitForm(kvl::Dictionary{{"method", "put"}},
                                   kvl::Array{kvltest::input("file", input)},
                                   KVLEncoding::RelativePath("a"), session, outcome.handler(), all);
  }
};

inline std::vector<AnyOperation> loadedOperations() {
  std::vector<AnyOperation> all = readableOperations();
  all.push_back({"Download", "content", LoadedFetch::download});
  all.push_back({"FormInPieces", "[1]", LoadedFetch::sendInPieces});
  return all;
}

}  // namespace kvltest
