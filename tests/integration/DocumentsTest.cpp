// Documents of a real service, whatever it answers.
#include "tests/integration/DocumentsFixture.h"
#include "tests/integration/ServerFiles.h"
#include "tests/support/Nginx.h"
#include "tests/support/WaitUntil.h"

#include <local/KVLEncodingSession.h>
#include <local/KVLExtensions.h>

#include <fstream>
#include <thread>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using KVLEncoding::WaitReason;

class DocumentsTest : public EstablishedService {};

TEST_F(DocumentsTest, DocumentsComeWithEveryStatus) {
  for (const int status : {200, 201, 400, 401, 403, 404, 422, 500, 503}) {
    const auto reply = fetch(*session, "code?status=" + std::to_string(status));
    EXPECT_FALSE(reply.error) << kvl::describe(reply.error);
    EXPECT_EQ(reply.status(), status);
    EXPECT_EQ(reply["status"], kvl::Value(status));
    EXPECT_EQ(KVLExtensions::requiresAuthentication(*reply.response),
              status == 401 || status == 403);
  }
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(DocumentsTest, NullIsAnEmptyAnswer) {
  const auto reply = fetch(*session, "code?status=200&body=null");
  EXPECT_FALSE(reply.document);
  EXPECT_EQ(reply.status(), 200);
  EXPECT_FALSE(reply.error) << kvl::describe(reply.error);
}

TEST_F(DocumentsTest, BareValuesAreDocuments) {
  EXPECT_EQ(fetch(*session, "code?status=200&body=42").document, kvl::Value(42));
  EXPECT_EQ(fetch(*session, "code?status=200&body=false").document, kvl::Value(false));
  EXPECT_EQ(fetch(*session, "code?status=200&body=%22text%22").document, kvl::Value("text"));
}

TEST_F(DocumentsTest, WhatIsNotJSONIsTheParsersError) {
  for (const auto* body : {"no", "%7B%22a%22:", "%5B1%5Dx", "%EF%BB%BF", "%FF"}) {
    const auto reply = fetch(*session, std::string("code?status=200&body=") + body);
    EXPECT_FALSE(reply.document) << body;
    EXPECT_EQ(reply.status(), 200);
    ASSERT_TRUE(reply.error) << body;
    EXPECT_TRUE(reply.error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError))
        << kvl::describe(reply.error);
  }
}

TEST_F(DocumentsTest, AnEmptyBodyIsNoDocument) {
  for (const int status : {200, 204}) {
    const auto reply = fetch(*session, "code?body=&status=" + std::to_string(status));
    EXPECT_FALSE(reply.document);
    EXPECT_EQ(reply.status(), status);
    ASSERT_TRUE(reply.error);
    EXPECT_TRUE(reply.error->is("korvale.vandrel.encoding.json", 1)) << kvl::describe(reply.error);
  }
}

TEST_F(DocumentsTest, RedirectionsLeadToTheDocument) {
  for (const auto* status : {"301", "302", "303", "307", "308"}) {
    const auto reply =
        fetch(*session, std::string("redirect?to=/code%3Fstatus%3D201&status=") + status);
    EXPECT_EQ(reply.status(), 201);
    EXPECT_EQ(reply["status"], kvl::Value(201)) << status;
    EXPECT_TRUE(reply.response->url.absoluteString().ends_with("/code?status=201"));
  }
}

TEST_F(DocumentsTest, RequiredTypesAreGiven) {
  kvl::Semaphore done;
  KVLEncoding::requireObjectOfClass<kvl::Dictionary>(*session, RelativePath("code?status=201"),
                                                     [&](const kvl::Dictionary& object) {
                                                       EXPECT_EQ(object["status"], kvl::Value(201));
                                                       EXPECT_TRUE(kvl::isMainThread());
                                                       done.signal();
                                                     });
  serveMainQueue(done);
}

TEST_F(DocumentsTest, OtherTypesThanTheRequiredOneAreLogged) {
  KVLEncoding::requireObjectOfClass<kvl::Array>(
      *session, RelativePath("code?status=200&body=%7B%7D"),
      [](const kvl::Array&) { ADD_FAILURE() << "it is a dictionary"; });
  // The line is written on the main queue, which each fetch serves.
  EXPECT_TRUE(waitUntil([this] {
    (void)fetch(*session, "status");
    return log.count("Required response is dictionary, expected array.") == 1;
  }));
}

TEST_F(DocumentsTest, BlockingFetchOnTheMainThreadServesTheMainQueue) {
  bool served = false;
  kvl::DispatchQueue::main()->async([&served] { served = true; });
  std::optional<kvl::Error> error;
  const auto document = KVLEncoding::jsonFromSession(*session, RelativePath("code?status=404"),
                                                     WaitReason("a test"), &error);
  ASSERT_TRUE(document);
  EXPECT_EQ((*document->dictionary())["status"], kvl::Value(404));
  EXPECT_FALSE(error);
  EXPECT_TRUE(served);
  EXPECT_EQ(log.count("WARNING: waiting for semaphore on main thread: json from session/code"), 1U);
}

TEST_F(DocumentsTest, BlockingFetchThatCannotBeDecodedBringsNothing) {
  std::optional<kvl::Error> error;
  EXPECT_FALSE(KVLEncoding::jsonFromSession(*session, RelativePath("code?status=200&body=no"),
                                            WaitReason("a test"), &error));
  EXPECT_FALSE(error);
}

TEST_F(DocumentsTest, BlockingFetchWorksOnAnotherThread) {
  kvl::Semaphore done;
  std::optional<kvl::Value> document;
  std::optional<kvl::Error> error;
  std::thread host([&] {
    // A machine that is busy enough may take longer than such a fetch waits.
    do {
      error.reset();
      document = KVLEncoding::jsonFromSession(*session, RelativePath("status"),
                                              WaitReason("a test"), &error);
    } while (error && error->is(kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode));
    done.signal();
  });
  serveMainQueue(done);
  host.join();
  EXPECT_TRUE(document);
  EXPECT_FALSE(error) << kvl::describe(error);
}

// The real limit, once.
TEST_F(DocumentsTest, BlockingFetchOnAnotherThreadEndsAfterFiveSeconds) {
  std::optional<kvl::Error> error;
  std::thread host([&] {
    EXPECT_FALSE(KVLEncoding::jsonFromSession(*session, RelativePath("slow?ms=600000&pieces=2"),
                                              WaitReason("a test"), &error));
  });
  host.join();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSPOSIXErrorDomain, 60)) << kvl::describe(error);
  EXPECT_TRUE(error->userInfo().empty());
  // The late end harms nobody.
  stopService();
  EXPECT_TRUE(fetch(*session, "status").error);
}

TEST_F(DocumentsTest, ServiceKilledInMidBodyIsAnErrorAndTheNextOneIsReached) {
  const auto port = servicePort();
  DocumentReply reply;
  kvl::Semaphore done;
  KVLEncoding::jsonFromSession(*session, RelativePath("slow?ms=600000&pieces=2"),
                               [&](std::optional<kvl::Value> document, kvl::URLResponseRef response,
                                   std::optional<kvl::Error> error) {
                                 reply = {std::move(document), std::move(response),
                                          std::move(error)};
                                 done.signal();
                               });
  ASSERT_TRUE(waitForServiceLog("slow: 1 of 2 pieces are sent"));
  stopService();
  // An error of the transfer comes on the queue of the HTTPS session object.
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_FALSE(reply.document);
  ASSERT_TRUE(reply.error);
  EXPECT_TRUE(reply.error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost))
      << kvl::describe(reply.error);
  startService({"--port", port});
  EXPECT_TRUE(fetch(*session, "status").document);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(DocumentsTest, ConnectionThatBreaksInMidDocumentIsAnErrorToo) {
  const auto reply = fetch(*session, "reset?after=200000");
  EXPECT_FALSE(reply.document);
  ASSERT_TRUE(reply.error);
  EXPECT_TRUE(reply.error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost));
  EXPECT_TRUE(fetch(*session, "status").document);
}

TEST_F(DocumentsTest, FetchesAtOnceAllSucceed) {
  constexpr int kFetches = 50;
  int good = 0;  // handlers run on the main queue only
  kvl::Semaphore done(1 - kFetches);
  for (int i = 0; i < kFetches; ++i) {
    KVLEncoding::jsonFromSession(*session,
                                 RelativePath("code?status=200&body=" + std::to_string(i)),
                                 [&, i](const std::optional<kvl::Value>& document, auto&&, auto&&) {
                                   if (document == kvl::Value(i)) ++good;
                                   done.signal();
                                 });
  }
  serveMainQueue(done);
  EXPECT_EQ(good, kFetches);
}

constexpr const char* kCompressing = R"(
  types { application/json json; }
  gzip on;
  gzip_types application/json;
  server {
    listen 127.0.0.1:%@ ssl;
    %@
    location / { root documents; }
  }
)";

class CompressedDocumentsTest : public LocalService {};

TEST_F(CompressedDocumentsTest, AreUnpacked) {
  std::filesystem::create_directory(bus.directory() / "documents");
  std::ofstream(bus.directory() / "documents/list.json")
      << "[\"" << std::string(100'000, 'x') << "\"]";
  writeServerFiles(stateDirectory(), bus.directory());
  const Nginx nginx(bus.directory(), [](std::uint16_t port) {
    return kvl::format(kCompressing, port, kServerCertificates);
  });
  offerNotary("--url https://127.0.0.1:" + std::to_string(nginx.port()) + "/");
  establish();
  const auto reply = fetch(*session, "list.json");
  ASSERT_TRUE(reply.document) << kvl::describe(reply.error);
  EXPECT_EQ((*reply.document->array())[0].string()->size(), 100'000U);
  EXPECT_EQ(reply.response->headers.find("Content-Encoding"), "gzip");
}

}  // namespace
