#include "encoding/AnswerBody.h"
#include "encoding/FailedStatus.h"
#include "encoding/FetchDelivery.h"
#include "encoding/MultipartSource.h"
#include "platform/core/ASCII.h"
#include "platform/core/ProcessExit.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLExtensionsURLRequest.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Log.h>
#include <local/platform/Workspace.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace {

using kvl::DataTaskHandler;

using FormDelivery = kvl::encoding::Delivery<std::optional<kvl::Data>>;
using EmptyAnswer = kvl::RequestOptions::EmptyAnswer;

// To the handler, or to the log without one.
kvl::Exchange reportFailure(const kvl::Error& error, const DataTaskHandler& handler,
                            const kvl::RequestOptions& options, std::string_view logPattern) {
  if (!handler) {
    kvl::log(kvl::LogCategory::documents, kvl::LogLevel::warning, logPattern, error);
    return {};
  }
  FormDelivery delivery(handler, options);
  const auto turn = delivery.turn();
  std::move(delivery).here(std::nullopt, nullptr, error);
  return kvl::encoding::exchangeWithoutTask(turn);
}

kvl::Exchange openAction(const kvl::String& action, const DataTaskHandler& handler,
                         const kvl::RequestOptions& options) {
  if (kvl::openURL(action)) return {};
  const kvl::Error error(KVLEncoding::KVLEncodingErrorDomain, 400, {{"error opening URL", action}});
  return reportFailure(error, handler, options, "error performing action: %@");
}

std::string upperCased(std::string_view method) {
  std::string text(method);
  std::ranges::transform(text, text.begin(), kvl::ascii::toUpper);
  return text;
}

// The handler of a caller that gave none.
void reportUnheardAnswer(const std::optional<kvl::Data>& /*body*/,
                         const kvl::URLResponseRef& response,
                         const std::optional<kvl::Error>& error) {
  if (error) {
    kvl::log(kvl::LogCategory::loading, kvl::LogLevel::error, "action error: %@", error);
    if (kvl::isMainThread()) kvl::presentError(*error);
  }
  if (response) kvl::encoding::logFailedStatus(*response);
}

// The body goes as it came, unless it is empty and somebody has asked what that means.
void deliverAnswer(std::optional<kvl::Data> body, kvl::URLResponseRef response,
                   std::optional<kvl::Error> error, EmptyAnswer emptyAnswer,
                   FormDelivery delivery) {
  if (!error && emptyAnswer != EmptyAnswer::usual && kvl::encoding::isWithoutBody(body)) {
    body.reset();
    if (emptyAnswer == EmptyAnswer::error) error = kvl::encoding::emptyAnswerError();
  }
  std::move(delivery).here(std::move(body), std::move(response), std::move(error));
}

// A form on its way, its body apart.
struct Submission {
  kvl::URLRequest request;
  std::string method;  // empty: that of the body
  kvl::RequestOptions options;
  FormDelivery delivery;
};
using SourceRef = std::shared_ptr<kvl::encoding::MultipartSource>;
using ExchangeStateRef = std::shared_ptr<kvl::urlloading::ExchangeState>;

// The request has its body already.
void send(KVLSession& session, Submission submission, kvl::urlloading::ExchangeState& exchange) {
  auto& request = submission.request;
  KVLEncoding::setHeaderToAcceptRoot(request);
  if (!submission.method.empty()) request.setMethod(submission.method);
  kvl::urlloading::apply(submission.options, request);
  kvl::encoding::send(
      session, request, exchange,
      [delivery = std::move(submission.delivery), emptyAnswer = submission.options.emptyAnswer](
          std::optional<kvl::Data> body, kvl::URLResponseRef response,
          std::optional<kvl::Error> error) mutable {
        deliverAnswer(std::move(body), std::move(response), std::move(error), emptyAnswer,
                      std::move(delivery));
      });
}

// The boundary is in the request's head, so the files are searched for one before it is sent.
void sendOnceSearched(KVLSession& session, Submission submission, SourceRef source,
                      ExchangeStateRef exchange) {
  kvl::DispatchQueue::concurrent("korvale.local.form")
      ->async([session = session.shared_from_this(), submission = std::move(submission),
               source = std::move(source), exchange = std::move(exchange)]() mutable {
        const auto turn = submission.delivery.turn();
        auto error = source->findBoundary(KVLExtensions::randomBoundary, [&] {
          return turn->isCancelled() || session->isEnded();
        });
        const kvl::core::ThreadWork work;
        if (error)
          return std::move(submission.delivery).here(std::nullopt, nullptr, std::move(error));
        kvl::encoding::MultipartSource::setBody(submission.request, std::exchange(source, nullptr));
        send(*session, std::move(submission), *exchange);
      });
}

kvl::Array inputsOf(KVLEncoding::DictionaryOrNone form) {
  return *KVLEncoding::arrayFromDictionary(form, "inputs", kvl::Array());
}

}  // namespace

std::optional<kvl::Dictionary> KVLEncoding::formWithAdditionalInputs(
    DictionaryOrNone form, const std::optional<kvl::Array>& inputs) {
  if (!form) return std::nullopt;
  auto merged = inputsOf(form);
  if (inputs) {
    for (const auto& input : *inputs) merged.append(input);
  }
  kvl::Dictionary copy = *form;
  copy.set("inputs", merged);
  return copy;
}

kvl::Exchange KVLEncoding::submitForm(DictionaryOrNone form,
                                      const std::optional<kvl::Array>& additionalInputs,
                                      const RelativePath& relativePath, KVLSession& session,
                                      kvl::DataTaskHandler completionHandler,
                                      const FormOptions& options) {
  if (!form) return {};
  const auto action = *stringFromDictionary(form, "action", kvl::String(relativePath.text()));
  if (action.text().starts_with("https://")) return openAction(action, completionHandler, options);
  kvl::URLRequest request(action.text());
  const auto inputs = inputsOf(formWithAdditionalInputs(form, additionalInputs));
  std::optional<kvl::Error> error;
  SourceRef source;
  if (options.streamsFiles) source = kvl::encoding::MultipartSource::make(inputs, &error);
  if (!source && !error) error = KVLExtensions::setHTTPBodyWithInputs(request, inputs);
  if (error) return reportFailure(*error, completionHandler, options, "error encoding inputs: %@");
  const auto method = stringFromDictionary(form, "method");
  if (!completionHandler) completionHandler = reportUnheardAnswer;
  FormDelivery delivery(std::move(completionHandler), options);
  const auto exchange = std::make_shared<kvl::urlloading::ExchangeState>(delivery.turn());
  Submission submission{std::move(request), method ? upperCased(*method) : std::string(),
                        static_cast<const kvl::RequestOptions&>(options), std::move(delivery)};
  if (source)
    sendOnceSearched(session, std::move(submission), std::move(source), exchange);
  else
    send(session, std::move(submission), *exchange);
  return kvl::Exchange(exchange);
}

kvl::Exchange KVLEncoding::submitForm(DictionaryOrNone form, const RelativePath& relativePath,
                                      KVLSession& session) {
  return submitForm(form, std::nullopt, relativePath, session);
}
