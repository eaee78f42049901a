// Fetches documents and images through a session, with a completion handler or waiting for the
// result.
#include "encoding/AnswerBody.h"
#include "encoding/ContentTypeRole.h"
#include "encoding/FetchDelivery.h"
#include "encoding/Waiting.h"
#include "platform/core/Sentence.h"
#include "platform/interface/client/ImageDecoding.h"

#include <local/KVLEncodingSession.h>
#include <local/KVLExtensionsImage.h>
#include <local/platform/Log.h>

namespace {

// Stands in for a handler that the caller did not give.
constexpr auto kLogError = [](const auto& /*result*/, const auto& /*response*/,
                              const std::optional<kvl::Error>& error) {
  if (error) kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "request error: %@", error);
};

using EmptyAnswer = kvl::RequestOptions::EmptyAnswer;
using DocumentDelivery = kvl::encoding::Delivery<std::optional<kvl::Value>>;
using ImageDelivery = kvl::encoding::Delivery<std::shared_ptr<kvl::Image>>;

// On the main queue, unless the transfer itself failed.
void deliverDocument(const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                     std::optional<kvl::Error> error, std::size_t maximumCells,
                     EmptyAnswer emptyAnswer, DocumentDelivery delivery) {
  if (error) return std::move(delivery).here(std::nullopt, std::move(response), std::move(error));
  const bool isEmpty = kvl::encoding::isWithoutBody(body);
  if (delivery.isCancelled() || (isEmpty && emptyAnswer == EmptyAnswer::none)) {
    return std::move(delivery).onMainQueue(std::nullopt, std::move(response), std::nullopt);
  }
  std::optional<kvl::Error> decodingError;
  auto document =
      kvl::encoding::rootFromBody(isEmpty ? std::nullopt : body, maximumCells, &decodingError);
  std::move(delivery).onMainQueue(std::move(document), std::move(response),
                                  std::move(decodingError));
}

kvl::Error wrongDocumentError(const std::optional<kvl::Value>& document, std::string_view required,
                              const KVLEncoding::RelativePath& relativePath) {
  using kvl::translatable;
  const kvl::core::Sentence sentence =
      document ? kvl::core::Sentence{translatable("Required response is %@, expected %@."),
                                     {std::string(document->typeName()), std::string(required)}}
               : kvl::core::Sentence{translatable("Required response is empty, expected %@."),
                                     {std::string(required)}};
  return kvl::core::errorWithSentence(kvl::NSCocoaErrorDomain, kvl::NSFormattingError, sentence,
                                      {{"URL", relativePath.text()}});
}

bool asksForTemplate(const kvl::URLResponseRef& response) {
  if (!response) return false;
  const auto contentType = kvl::encoding::contentTypeOf(*response);
  return contentType && kvl::encoding::hasTemplateRole(*contentType);
}

void prepare(kvl::Image& image, const kvl::URLResponseRef& response, kvl::Size size) {
  if (size.width > 0 && size.height > 0) KVLExtensions::scaleImage(image, size);
  if (asksForTemplate(response)) image.setTemplate(true);
}

// What an answer without an image is, if it can be said at once.
std::optional<kvl::Error> emptyImageError(EmptyAnswer emptyAnswer) {
  if (emptyAnswer == EmptyAnswer::error) return kvl::encoding::emptyAnswerError();
  return std::nullopt;
}

// On the main queue, from whichever thread made the image.
void deliverImage(const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
                  std::optional<kvl::Error> error, kvl::Size size, EmptyAnswer emptyAnswer,
                  ImageDelivery delivery) {
  if (!body || delivery.isCancelled())
    return std::move(delivery).onMainQueue(nullptr, std::move(response), std::move(error));
  if (body->empty() && emptyAnswer != EmptyAnswer::usual)
    return std::move(delivery).onMainQueue(nullptr, std::move(response),
                                           emptyImageError(emptyAnswer));
  kvl::Image::imageWithData(
      *body, [size, delivery = std::move(delivery), response = std::move(response),
              error = std::move(error)](std::shared_ptr<kvl::Image> image) mutable {
        if (image) prepare(*image, response, size);
        std::move(delivery).onMainQueue(std::move(image), std::move(response), std::move(error));
      });
}

}  // namespace

kvl::Exchange KVLEncoding::jsonFromSession(KVLSession& session, const RelativePath& relativePath,
                                           DocumentHandler completionHandler,
                                           const kvl::RequestOptions& options) {
  if (!completionHandler) completionHandler = kLogError;
  kvl::URLRequest request(relativePath.text());
  setHeaderToAcceptRoot(request);
  kvl::urlloading::apply(options, request);
  DocumentDelivery delivery(std::move(completionHandler), options);
  const auto turn = delivery.turn();
  return kvl::encoding::startExchange(
      session, request, turn,
      [delivery = std::move(delivery), emptyAnswer = options.emptyAnswer,
       maximumCells = kvl::encoding::maximumCellsOf(session)](
          const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
          std::optional<kvl::Error> error) mutable {
        deliverDocument(body, std::move(response), std::move(error), maximumCells, emptyAnswer,
                        std::move(delivery));
      });
}

std::optional<kvl::Value> KVLEncoding::jsonFromSession(KVLSession& session,
                                                       const RelativePath& relativePath,
                                                       const WaitReason&,
                                                       std::optional<kvl::Error>* error) {
  return kvl::encoding::waitForFetch<std::optional<kvl::Value>>(
      [&](DocumentHandler handler) { jsonFromSession(session, relativePath, std::move(handler)); },
      WaitReason("json from session/" + relativePath.text()), kvl::encoding::kLongestWait, error);
}

void KVLEncoding::detail::reportWrongDocument(const std::optional<kvl::Value>& document,
                                              const std::optional<kvl::Error>& error,
                                              std::string_view required,
                                              const RelativePath& relativePath) {
  kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "request error: %@",
           error ? *error : wrongDocumentError(document, required, relativePath));
}

kvl::Exchange KVLEncoding::imageFromSession(KVLSession& session, const RelativePath& relativePath,
                                            kvl::Size size, ImageHandler completionHandler,
                                            const kvl::RequestOptions& options) {
  if (!completionHandler) completionHandler = kLogError;
  kvl::URLRequest request(relativePath.text());
  request.headers().set("Accept", "application/pdf;q=0.9,image/*;q=0.8");
  request.setContentKind(kvl::ContentKind::image);
  kvl::urlloading::apply(options, request);
  kvl::interface::ImageDecoding::process().prepare();  // starts while the request is under way
  ImageDelivery delivery(std::move(completionHandler), options);
  const auto turn = delivery.turn();
  return kvl::encoding::startExchange(
      session, request, turn,
      [delivery = std::move(delivery), size, emptyAnswer = options.emptyAnswer](
          const std::optional<kvl::Data>& body, kvl::URLResponseRef response,
          std::optional<kvl::Error> error) mutable {
        deliverImage(body, std::move(response), std::move(error), size, emptyAnswer,
                     std::move(delivery));
      });
}

std::shared_ptr<kvl::Image> KVLEncoding::imageFromSession(KVLSession& session,
                                                          const RelativePath& relativePath,
                                                          kvl::Size size, const WaitReason&,
                                                          std::optional<kvl::Error>* error) {
  return kvl::encoding::waitForFetch<std::shared_ptr<kvl::Image>>(
      [&](ImageHandler handler) {
        imageFromSession(session, relativePath, size, std::move(handler));
      },
      WaitReason("image from session/" + relativePath.text()), kvl::encoding::kLongestWait, error);
}
