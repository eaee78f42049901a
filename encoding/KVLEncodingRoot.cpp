#include "encoding/AnswerBody.h"
#include "encoding/FailedStatus.h"
#include "encoding/FetchDelivery.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"
#include "platform/serialisation/PropertyListWriter.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Log.h>

namespace {

using KVLEncoding::RootHandler;

constexpr std::string_view kRootErrorDomain = "korvale.vandrel.encoding.root";
constexpr std::string_view kJSONErrorDomain = "korvale.vandrel.encoding.json";
constexpr std::string_view kReasonKey = "data";

void setBody(kvl::Data body, std::string_view type, kvl::URLRequest& request) {
  request.headers().set("Content-Type", type);
  request.setBody(std::move(body));
}

// Sets the body and its type; on failure only the error. What can be written is gone over once:
// writing says itself what it cannot hold.
std::optional<kvl::Error> encodeRoot(const kvl::Value& root, kvl::URLRequest& request) {
  std::optional<kvl::Error> error;
  if (auto json = kvl::JSONIfValid(root, &error)) {
    setBody(*std::move(json), "application/json", request);
  } else if (error) {
    return error;
  } else if (auto list = kvl::binaryPropertyListFromValue(root, nullptr)) {
    setBody(*std::move(list), "application/x-plist", request);
  } else {
    return kvl::Error(kRootErrorDomain, 1, {{kReasonKey, "invalid for request encoding"}});
  }
  return std::nullopt;
}

using RootDelivery = kvl::encoding::Delivery<std::optional<kvl::Value>>;
using EmptyAnswer = kvl::RequestOptions::EmptyAnswer;

// Nothing is sent, and what comes of it may still be cancelled where it goes by a queue.
kvl::Exchange reportUnencodable(const kvl::Error& error, bool isHeard, RootDelivery delivery) {
  if (!isHeard) {
    kvl::log(kvl::LogCategory::documents, kvl::LogLevel::warning, "error encoding root: %@", error);
    return {};
  }
  const auto turn = delivery.turn();
  std::move(delivery).here(std::nullopt, nullptr, error);
  return kvl::encoding::exchangeWithoutTask(turn);
}

void deliverRoot(const std::optional<kvl::Data>& body, const kvl::URLResponseRef& response,
                 const std::optional<kvl::Error>& error, std::size_t maximumCells,
                 EmptyAnswer emptyAnswer, RootDelivery delivery) {
  if (error) return std::move(delivery).here(std::nullopt, response, error);
  const bool isEmpty = kvl::encoding::isWithoutBody(body);
  if (delivery.isCancelled() || (isEmpty && emptyAnswer != EmptyAnswer::error)) {
    return std::move(delivery).here(std::nullopt, response, std::nullopt);
  }
  std::optional<kvl::Error> decodingError;
  auto root =
      kvl::encoding::rootFromBody(isEmpty ? std::nullopt : body, maximumCells, &decodingError);
  std::move(delivery).here(std::move(root), response, std::move(decodingError));
}

void logAnswer(const kvl::URLResponseRef& response, const std::optional<kvl::Error>& error) {
  if (error)
    return kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "json call failed: %@", error);
  if (response) kvl::encoding::logFailedStatus(*response);
}

// The answer goes to the log as it comes; nobody looks at its body.
kvl::Exchange submitUnheard(const kvl::URLRequest& request, KVLSession& session,
                            const kvl::urlloading::HandlerTurnRef& turn) {
  return kvl::encoding::startExchange(
      session, request, turn,
      [turn](const std::optional<kvl::Data>&, const kvl::URLResponseRef& response,
             const std::optional<kvl::Error>& error) {
        (void)turn->begin();  // the log has no use for a result either way
        logAnswer(response, error);
      });
}

}  // namespace

kvl::Exchange KVLEncoding::submit(const kvl::Value& root, const RelativePath& relativePath,
                                  KVLSession& session, RootHandler completionHandler,
                                  const kvl::RequestOptions& options) {
  kvl::URLRequest request(relativePath.text());
  setHeaderToAcceptRoot(request);
  request.setMethod("POST");
  const bool isHeard = static_cast<bool>(completionHandler);
  RootDelivery delivery(std::move(completionHandler), options);
  const auto turn = delivery.turn();
  if (const auto error = encodeRoot(root, request)) {
    return reportUnencodable(*error, isHeard, std::move(delivery));
  }
  kvl::urlloading::apply(options, request);
  if (!isHeard) return submitUnheard(request, session, turn);
  return kvl::encoding::startExchange(
      session, request, turn,
      [delivery = std::move(delivery), emptyAnswer = options.emptyAnswer,
       maximumCells = kvl::encoding::maximumCellsOf(session)](
          const std::optional<kvl::Data>& body, const kvl::URLResponseRef& response,
          const std::optional<kvl::Error>& error) mutable {
        deliverRoot(body, response, error, maximumCells, emptyAnswer, std::move(delivery));
      });
}

void KVLEncoding::setHeaderToAcceptRoot(kvl::URLRequest& request) {
  request.headers().set("Accept", "application/json");
  request.setContentKind(kvl::ContentKind::document);
}

std::optional<kvl::Value> KVLEncoding::rootFromResponse(const kvl::URLResponseRef&,
                                                        const std::optional<kvl::Data>& body,
                                                        std::optional<kvl::Error>* error) {
  const auto usual = kvl::URLSessionConfiguration::ephemeral();
  return kvl::encoding::rootFromBody(body, usual.maximumDocumentCells, error);
}

std::optional<kvl::Value> kvl::encoding::rootFromBody(const std::optional<Data>& body,
                                                      std::size_t maximumCells,
                                                      std::optional<Error>* error) {
  std::optional<kvl::Value> root;
  std::optional<kvl::Error> failure;
  if (body) {
    root = kvl::valueFromJSON(*body, &failure, maximumCells);
  } else {
    failure = kvl::Error(kJSONErrorDomain, 1, {{kReasonKey, "nil"}});
  }
  // A body of `null` is an empty answer, not a failure.
  if (root && root->isNull()) root.reset();
  kvl::storeError(error, std::move(failure));
  return root;
}
