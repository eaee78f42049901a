// The fetches and submissions, to have one test for all of them.
#pragma once

#include "tests/encoding/FetchFixture.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingRoot.h>
#include <local/KVLEncodingSession.h>
#include <local/platform/Exchange.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

// What a handler of any of them got.
struct AnyOutcome {
  int calls = 0;
  bool hasResult = false;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
  std::thread::id thread;
  std::function<void()> whenCalled;

  template <class Result>
  void note(const Result& result, const kvl::URLResponseRef& head,
            const std::optional<kvl::Error>& failure) {
    ++calls;
    hasResult = static_cast<bool>(result);
    response = head;
    error = failure;
    thread = std::this_thread::get_id();
    if (whenCalled) whenCalled();
  }
  // The outcome must stay where it is until it has come.
  [[nodiscard]] auto handler() {
    return [this](const auto& result, const kvl::URLResponseRef& head,
                  const std::optional<kvl::Error>& failure) { note(result, head, failure); };
  }
  [[nodiscard]] bool isCancelled() const {
    return !hasResult && error && error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);
  }
};

struct AnyOperation {
  std::string_view name;
  std::string_view goodAnswer;
  kvl::Exchange (*start)(KVLSession&, AnyOutcome&, const kvl::RequestOptions&);
};

inline const AnyOperation kOperations[] = {
    {"Document", "[1]",
     [](KVLSession& session, AnyOutcome& outcome, const kvl::RequestOptions& options) {
       return KVLEncoding::jsonFromSession(session, KVLEncoding::RelativePath("a"),
                                           outcome.handler(), options);
     }},
    {"RequiredObject", "[1]",
     [](KVLSession& session, AnyOutcome& outcome, const kvl::RequestOptions& options) {
       return KVLEncoding::requireObjectOfClass<kvl::Array>(
           session, KVLEncoding::RelativePath("a"),
           [&outcome](const kvl::Array&) { outcome.note(true, nullptr, std::nullopt); }, options);
     }},
    {"Image", R"(<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"/>)",
     [](KVLSession& session, AnyOutcome& outcome, const kvl::RequestOptions& options) {
       return KVLEncoding::imageFromSession(session, KVLEncoding::RelativePath("a"), {},
                                            outcome.handler(), options);
     }},
    {"Submission", "[1]",
     [](KVLSession& session, AnyOutcome& outcome, const kvl::RequestOptions& options) {
       return KVLEncoding::submit(kvl::Array{1}, KVLEncoding::RelativePath("a"), session,
                                  outcome.handler(), options);
     }},
    {"Form", "[1]",
     [](KVLSession& session, AnyOutcome& outcome, const kvl::RequestOptions& options) {
       return KVLEncoding::submitForm(kvl::Dictionary(), std::nullopt,
                                      KVLEncoding::RelativePath("a"), session, outcome.handler(),
                                      KVLEncoding::FormOptions{options});
     }},
};

// Those whose good answer can be read here.
inline std::vector<AnyOperation> readableOperations() {
  std::vector<AnyOperation> all(std::begin(kOperations), std::end(kOperations));
#ifdef KVL_WITHOUT_IMAGES
  std::erase_if(all, [](const AnyOperation& operation) { return operation.name == "Image"; });
#endif
  return all;
}

inline void PrintTo(const AnyOperation& operation, std::ostream* stream) {
  *stream << operation.name;
}

inline std::string nameOf(const testing::TestParamInfo<AnyOperation>& given) {
  return std::string(given.param.name);
}

}  // namespace kvltest
