#include "tests/integration/DocumentsFixture.h"

#include <local/KVLEncodingSession.h>
#include <local/KVLExtensions.h>

#include <glib.h>

#include <utility>

namespace kvltest {

int DocumentReply::status() const {
  return response ? static_cast<int>(KVLExtensions::statusCode(*response)) : -1;
}

kvl::Value DocumentReply::operator[](std::string_view key) const {
  const auto dictionary = document ? document->dictionary() : std::nullopt;
  return dictionary ? (*dictionary)[key] : kvl::Value();
}

void serveMainQueue(kvl::Semaphore& semaphore) {
  EXPECT_FALSE(KVLEncoding::waitForSemaphore(semaphore, KVLEncoding::WaitReason("a test")));
}

DocumentReply fetch(KVLSession& session, std::string_view path) {
  DocumentReply reply;
  kvl::Semaphore done;
  KVLEncoding::jsonFromSession(session, KVLEncoding::RelativePath(path),
                               [&](std::optional<kvl::Value> document, kvl::URLResponseRef response,
                                   std::optional<kvl::Error> error) {
                                 reply = {std::move(document), std::move(response),
                                          std::move(error)};
                                 done.signal();
                               });
  serveMainQueue(done);
  return reply;
}

DocumentReply submit(KVLSession& session, const kvl::Value& root, std::string_view path) {
  DocumentReply reply;
  kvl::Semaphore done;
  KVLEncoding::submit(root, KVLEncoding::RelativePath(path), session,
                      [&](std::optional<kvl::Value> document, kvl::URLResponseRef response,
                          std::optional<kvl::Error> error) {
                        reply = {std::move(document), std::move(response), std::move(error)};
                        done.signal();
                      });
  serveMainQueue(done);
  return reply;
}

std::string decodedBase64(const kvl::Value& text) {
  const std::string encoded(text.string().value_or(""));
  gsize size = 0;
  guchar* const bytes = g_base64_decode(encoded.c_str(), &size);
  std::string decoded(reinterpret_cast<const char*>(bytes), size);
  g_free(bytes);
  return decoded;
}

}  // namespace kvltest
