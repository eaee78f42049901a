// Documents from the development service, fetched and submitted as a host does it.
#pragma once

#include "tests/integration/LocalService.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvltest {

// What a fetch or a submission brought.
struct DocumentReply {
  std::optional<kvl::Value> document;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;

  [[nodiscard]] int status() const;
  // What a dictionary holds under `key`, or the null value.
  [[nodiscard]] kvl::Value operator[](std::string_view key) const;
};

// Serves the main queue until `semaphore` is free.
void serveMainQueue(kvl::Semaphore& semaphore);

// These wait for the outcome and serve the main queue meanwhile, so they are for the main thread.
[[nodiscard]] DocumentReply fetch(KVLSession& session, std::string_view path);
[[nodiscard]] DocumentReply submit(KVLSession& session, const kvl::Value& root,
                                   std::string_view path);

// The bytes that a text in base64 stands for.
[[nodiscard]] std::string decodedBase64(const kvl::Value& text);

}  // namespace kvltest
