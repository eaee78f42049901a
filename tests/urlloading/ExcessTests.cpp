// Servers that say more than they were asked: nobody's answer is what was left of another's.
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <semaphore>
#include <string>
#include <vector>

namespace kvl::testing {
namespace {

struct Excess {
  const char* name;
  const char* method;
  // After the first request, each in a TLS record of its own.
  std::vector<std::string> records;
};

std::vector<Excess> excesses() {
  const std::string stale = httpResponse("stale");
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::string chunks = "5\r\nfirst\r\n0\r\n\r\n";
  const std::string empty = "HTTP/1.1 204 No Content\r\n\r\n";
  return {{"InTheRecordOfTheBody", "GET", {head, "first" + stale}},
          {"InTheRecordOfPartOfTheBody", "GET", {head + "fi", "rst" + stale}},
          {"InTheRecordOfTheWholeAnswer", "GET", {head + "first" + stale}},
          {"InARecordOfItsOwn", "GET", {head + "first", stale}},
          {"AfterTheLastChunk", "GET", {chunkedHead, chunks + stale}},
          {"AfterAChunkedAnswer", "GET", {chunkedHead + chunks, stale}},
          {"AfterAnAnswerWithoutABody", "GET", {empty + stale}},
          {"AfterAnAnswerToHEAD", "HEAD", {head + stale}},
          {"AsOneMoreRecordThanTheBodyTakes",
           "GET",
           {"HTTP/1.1 200 OK\r\nContent-Length: 40000\r\n\r\n", std::string(40000, 'x') + stale}}};
}

class ExcessTest : public URLSessionTest, public ::testing::WithParamInterface<Excess> {};

TEST_P(ExcessTest, IsNeverTakenForTheNextAnswer) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    std::binary_semaphore written(0);
    std::atomic<int> connections = 0;
    const TestTLSServer peer({.identity = &server(), .tlsVersion = version}, [&](TestPeer& client) {
      if (connections++ > 0) return answering(httpResponse("own"))(client);
      static_cast<void>(client.readRequest());
      for (const auto& record : GetParam().records) client.write(record);
      written.release();
      answering(httpResponse("own"))(client);
    });
    URLRequest request(peer.url("127.0.0.1"));
    request.setMethod(GetParam().method);
    EXPECT_FALSE(load(*session, request).error);
    written.acquire();
    EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "own");
  }
}

INSTANTIATE_TEST_SUITE_P(Places, ExcessTest, ::testing::ValuesIn(excesses()),
                         [](const auto& place) { return place.param.name; });

}  // namespace
}  // namespace kvl::testing
