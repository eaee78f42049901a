// Requests that follow one another on the same easy handles.
#include "platform/urlloading/EasyHandles.h"
#include "tests/urlloading/TextSource.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::testing {
namespace {

using urlloading::EasyHandle;
using urlloading::EasyHandles;

// What the server got, in order.
class Wire {
 public:
  void add(std::string request) {
    const MutexLock lock(mutex_);
    requests_.push_back(std::move(request));
  }
  [[nodiscard]] std::string last() const {
    const MutexLock lock(mutex_);
    return requests_.empty() ? std::string() : requests_.back();
  }

 private:
  mutable Mutex mutex_;
  std::vector<std::string> requests_ KVL_GUARDED_BY(mutex_);
};

class HandleReuseTest : public URLSessionTest {
 protected:
  using Make = URLRequest (*)(URLRequest);

  // Requests of all kinds: what one sets, the next must not have.
  static const std::vector<Make>& kinds();

  // The bytes of the request, as they come from this session object.
  std::string sent(URLSession& from, Make make) {
    const auto outcome = load(from, make(URLRequest(server_.url("127.0.0.1", "/path"))));
    EXPECT_FALSE(outcome.error) << outcome.error->description();
    return wire_.last();
  }

 private:
  Wire wire_;
  const TestTLSServer server_{{}, [this](TestPeer& peer) {
                                for (;;) {
                                  std::string request = peer.readRequest();
                                  if (request.empty()) return;
                                  const bool isHead = request.starts_with("HEAD");
                                  wire_.add(std::move(request));
                                  if (!peer.write(httpResponse(isHead ? "" : "x"))) return;
                                }
                              }};
};

const std::vector<HandleReuseTest::Make>& HandleReuseTest::kinds() {
  static const auto withField = [](URLRequest request, std::string_view name) {
    request.headers().set(name, "value");
    return request;
  };
  static const auto withMethod = [](URLRequest request, std::string_view method,
                                    std::string_view body) {
    request.setMethod(method);
    if (!body.empty()) request.setBody(Data::fromText(body));
    return request;
  };
  static const std::vector<Make> kinds = {
      [](URLRequest request) { return request; },
      [](URLRequest request) { return request; },
      [](URLRequest request) { return withField(std::move(request), "Accept"); },
      [](URLRequest request) { return withField(std::move(request), "Cookie"); },
      [](URLRequest request) { return withField(std::move(request), "Host"); },
      [](URLRequest request) { return withField(std::move(request), "User-Agent"); },
      [](URLRequest request) { return withField(std::move(request), "Accept-Encoding"); },
      [](URLRequest request) { return withMethod(std::move(request), "HEAD", ""); },
      [](URLRequest request) { return withMethod(std::move(request), "POST", "some text"); },
      [](URLRequest request) { return withMethod(std::move(request), "POST", ""); },
      [](URLRequest request) { return withMethod(std::move(request), "PUT", "text"); },
      [](URLRequest request) { return withMethod(std::move(request), "DELETE", ""); },
      [](URLRequest request) { return withMethod(std::move(request), "OPTIONS", "body"); },
      [](URLRequest request) { return withMethod(std::move(request), "GET", "body"); },
      [](URLRequest request) {
        request.setBody(Data{});
        return request;
      },
      [](URLRequest request) {
        request.setMethod("PUT");
        request.setBodySource(std::make_shared<TextSource>("streamed"));
        return request;
      },
      [](URLRequest request) {
        request.setContentKind(ContentKind::eventStream);
        return request;
      },
      [](URLRequest request) {
        request.setPriority(RequestPriority::low);
        return request;
      },
  };
  return kinds;
}

TEST_F(HandleReuseTest, ARequestLooksTheSameWhateverWentBefore) {
  std::vector<std::string> alone;
  for (const Make make : kinds()) {
    const auto fresh = URLSession::create(anyPeers(), delegate);
    alone.push_back(sent(*fresh, make));
  }
  std::mt19937 random(20);
  std::uniform_int_distribution<std::size_t> any(0, kinds().size() - 1);
  for (int round = 0; round < 300; ++round) {
    const auto kind = any(random);
    ASSERT_EQ(sent(*session, kinds()[kind]), alone[kind]) << "kind " << kind;
  }
}

TEST_F(HandleReuseTest, TheNameInAHostFieldDoesNotSteerTheCookiesOfTheNextRequest) {
  Wire wire;
  const TestTLSServer peer({}, [&wire](TestPeer& client) {
    for (std::string request; !(request = client.readRequest()).empty();) {
      const bool isFirst = wire.last().empty();
      wire.add(request);
      client.write(httpResponse("x", "200 OK", isFirst ? "Set-Cookie: a=b\r\n" : ""));
    }
  });
  const URLRequest plain(peer.url("127.0.0.1"));
  URLRequest named = plain;
  named.headers().set("Host", "other.example");
  for (const URLRequest& request : {plain, named, plain}) {
    EXPECT_FALSE(load(*session, request).error);
  }
  EXPECT_NE(wire.last().find("Cookie: a=b"), std::string::npos) << wire.last();
}

// Its progress is watched, even of nothing.
TEST(EasyHandlesTest, ARequestWithABodyIsNotPlain) {
  const URLRequest plain("https://127.0.0.1/");
  EXPECT_TRUE(urlloading::isPlain(plain));
  URLRequest empty = plain;
  empty.setBody(Data{});
  EXPECT_FALSE(urlloading::isPlain(empty));
}

TEST(EasyHandlesTest, OneThatIsGivenBackServesAgain) {
  const URLSessionConfiguration configuration;
  EasyHandles handles(configuration);
  ASSERT_TRUE(handles.isUsable());
  EasyHandle first = handles.take();
  ASSERT_NE(first, nullptr);
  int mark = 0;
  curl_easy_setopt(first.get(), CURLOPT_PRIVATE, &mark);
  handles.giveBack(std::move(first));
  void* found = nullptr;
  curl_easy_getinfo(handles.take().get(), CURLINFO_PRIVATE, &found);
  EXPECT_EQ(found, &mark);
}

// So many handles, each of which a session marks when it takes it first.
std::vector<EasyHandle> takeMarked(EasyHandles& handles, std::size_t count) {
  std::vector<EasyHandle> taken(count);
  for (EasyHandle& easy : taken) {
    easy = handles.take();
    curl_easy_setopt(easy.get(), CURLOPT_PRIVATE, &handles);
  }
  return taken;
}

// How many of the next ones that are taken have served before.
std::size_t countThatServeAgain(EasyHandles& handles, std::size_t count) {
  std::vector<EasyHandle> taken(count);
  std::size_t found = 0;
  for (EasyHandle& easy : taken) {
    easy = handles.take();
    void* mark = nullptr;
    curl_easy_getinfo(easy.get(), CURLINFO_PRIVATE, &mark);
    if (mark != nullptr) ++found;
  }
  for (EasyHandle& easy : taken) handles.giveUp(std::move(easy));
  return found;
}

TEST(EasyHandlesTest, AsManyServeAgainAsAreInUse) {
  const URLSessionConfiguration configuration;
  EasyHandles handles(configuration);
  auto inUse = takeMarked(handles, 50);
  for (EasyHandle& easy : takeMarked(handles, 50)) handles.giveBack(std::move(easy));
  EXPECT_EQ(countThatServeAgain(handles, 60), 50U);
  for (EasyHandle& easy : inUse) handles.giveUp(std::move(easy));
}

TEST(EasyHandlesTest, FewAreKeptWhenTheyHaveAllComeBack) {
  const URLSessionConfiguration configuration;
  EasyHandles handles(configuration);
  for (EasyHandle& easy : takeMarked(handles, 100)) handles.giveBack(std::move(easy));
  EXPECT_EQ(countThatServeAgain(handles, 100), EasyHandles::kMostIdle);
}

TEST(EasyHandlesTest, ThoseThatAreGivenUpAreNotInUse) {
  const URLSessionConfiguration configuration;
  EasyHandles handles(configuration);
  auto inUse = takeMarked(handles, 50);
  for (EasyHandle& easy : takeMarked(handles, 50)) handles.giveBack(std::move(easy));
  for (EasyHandle& easy : inUse) handles.giveUp(std::move(easy));
  EXPECT_EQ(countThatServeAgain(handles, 100), EasyHandles::kMostIdle);
}

TEST(EasyHandlesTest, OnlySoManyAreKept) {
  const URLSessionConfiguration configuration;
  EasyHandles handles(configuration);
  std::vector<EasyHandle> taken;
  for (std::size_t i = 0; i <= EasyHandles::kMostIdle; ++i) taken.push_back(handles.take());
  const CURL* const lastKept = taken[EasyHandles::kMostIdle - 1].get();
  for (EasyHandle& easy : taken) handles.giveBack(std::move(easy));
  EXPECT_EQ(handles.take().get(), lastKept);
}

}  // namespace
}  // namespace kvl::testing
