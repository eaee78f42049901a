#include "encoding/FailedStatus.h"
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

// To the handler, or to the log without one.
void reportFailure(const kvl::Error& error, const DataTaskHandler& handler,
                   std::string_view logPattern) {
  if (handler) {
    handler(std::nullopt, nullptr, error);
  } else {
    kvl::log(kvl::LogCategory::documents, kvl::LogLevel::error, logPattern, error);
  }
}

void openAction(const kvl::String& action, const DataTaskHandler& handler) {
  if (kvl::openURL(action)) return;
  const kvl::Error error(KVLEncoding::KVLEncodingErrorDomain, 400, {{"error opening URL", action}});
  reportFailure(error, handler, "error performing action: %@");
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

void KVLEncoding::submitForm(DictionaryOrNone form,
                             const std::optional<kvl::Array>& additionalInputs,
                             const RelativePath& relativePath, KVLSession& session,
                             kvl::DataTaskHandler completionHandler) {
  if (!form) return;
  const auto action = *stringFromDictionary(form, "action", kvl::String(relativePath.text()));
  if (action.text().starts_with("https://")) return openAction(action, completionHandler);
  kvl::URLRequest request(action.text());
  const auto inputs = inputsOf(formWithAdditionalInputs(form, additionalInputs));
  if (const auto error = KVLExtensions::setHTTPBodyWithInputs(request, inputs))
    return reportFailure(*error, completionHandler, "error encoding inputs: %@");
  setHeaderToAcceptRoot(request);
  const auto method = stringFromDictionary(form, "method");
  if (method && !method->empty()) request.setMethod(upperCased(*method));
  if (!completionHandler) completionHandler = reportUnheardAnswer;
  session.request(request, std::move(completionHandler));
}

void KVLEncoding::submitForm(DictionaryOrNone form, const RelativePath& relativePath,
                             KVLSession& session) {
  submitForm(form, std::nullopt, relativePath, session);
}
