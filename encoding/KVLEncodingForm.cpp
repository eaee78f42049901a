#include "encoding/AnswerBody.h"
#include "encoding/FailedStatus.h"
#include "encoding/FetchDelivery.h"
#include "platform/core/ASCII.h"

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
  if (const auto error = KVLExtensions::setHTTPBodyWithInputs(request, inputs))
    return reportFailure(*error, completionHandler, options, "error encoding inputs: %@");
  setHeaderToAcceptRoot(request);
  const auto method = stringFromDictionary(form, "method");
  if (method && !method->empty()) request.setMethod(upperCased(*method));
  kvl::urlloading::apply(options, request);
  if (!completionHandler) completionHandler = reportUnheardAnswer;
  FormDelivery delivery(std::move(completionHandler), options);
  const auto turn = delivery.turn();
  return kvl::encoding::startExchange(
      session, request, turn,
      [delivery = std::move(delivery), emptyAnswer = options.emptyAnswer](
          std::optional<kvl::Data> body, kvl::URLResponseRef response,
          std::optional<kvl::Error> error) mutable {
        deliverAnswer(std::move(body), std::move(response), std::move(error), emptyAnswer,
                      std::move(delivery));
      });
}

kvl::Exchange KVLEncoding::submitForm(DictionaryOrNone form, const RelativePath& relativePath,
                                      KVLSession& session) {
  return submitForm(form, std::nullopt, relativePath, session);
}
