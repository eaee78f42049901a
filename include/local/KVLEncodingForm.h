/// @file
/// Forms, merged and submitted.
#pragma once

#include <local/KVLEncoding.h>
#include <local/KVLEncodingRoot.h>
#include <local/KVLSession.h>
#include <local/platform/Exchange.h>
#include <local/platform/Export.h>
#include <local/platform/URLSession.h>
#include <local/platform/Value.h>

#include <optional>

/// A form is a dictionary with, all optional, "action" (a web address that begins with "https://",
/// or a URL of the service), "method" (an HTTP method in any case) and "inputs" (see
/// `KVLExtensions::setHTTPBodyWithInputs`).
///
/// Inputs are sent in the service's own dialect, which escapes nothing: a line feed in an input's
/// name, in a file's name or in its media type ends that line of the part's head, and what follows
/// it is a line of the head of its own, or, after an empty one, the beginning of the content.
/// Refuse such names where they come from: in what users type and in what a file system lists.
namespace KVLEncoding {

/// `form:withAdditionalInputs:` A copy of the form with the additional inputs after its own. The
/// copy always has "inputs", an empty array when there are none. No form gives none. Any thread.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Dictionary> formWithAdditionalInputs(
    DictionaryOrNone form, const std::optional<kvl::Array>& inputs);

/// What the submission of a form wants beside the usual.
struct FormOptions : kvl::RequestOptions {
  /// Whether files that are open (`KVLInputFile::newWithDescriptor`) are read while they are sent,
  /// in little memory, rather than into one body before. What goes out is the same.
  ///
  /// The request is sent once a worker thread has read the files to the end, to find a boundary
  /// that occurs in none of them; the time-outs begin then. Until then the operation holds the
  /// session, and a handler without a queue of the options' is called on that thread if nothing can
  /// be sent. A file that has become shorter by then, or while it is sent, is
  /// `NSFileReadUnknownError`; what others write to it meanwhile could hold the boundary. Of no
  /// effect on a form without open files.
  bool streamsFiles = false;
};

/// `submitForm:additionalInputs:relativePath:session:completionHandler:` Submits a form.
///
/// An action that begins with "https://" is opened in the user's browser (see
/// `kvl::setURLOpener`) and never sent to the service; the handler is then called only if that
/// fails, with `KVLEncodingErrorDomain`, 400. Any other action is sent to the service, with the
/// inputs as a body and the form's method; without inputs and method it is a GET. An action that is
/// no URL fails when it is sent, with `NSURLErrorBadURL`.
///
/// @param form no form does nothing: the handler is not called
/// @param relativePath the action of a form that has none
/// @param completionHandler receives the body as it came, the response and the error. Called at
///   once on the caller's thread when nothing could be sent, else as `KVLSession::request` says.
///   Without one, failures and every status of 300 and more are written to the log, and an error
///   that arrives on the main thread is shown to the user (see `kvl::setErrorPresenter`).
/// @param options with a queue the handler runs there, whatever the outcome, and never before this
///   returns. An empty answer that is to be an error is `KVLEncodingErrorDomain`, 204.
/// @return a handle of the submission, to cancel it or to follow it; nobody need keep it. Empty
///   where nothing is left to wait for: for no form and for an action that the browser has opened.
KVL_EXPORT kvl::Exchange submitForm(DictionaryOrNone form,
                                    const std::optional<kvl::Array>& additionalInputs,
                                    const RelativePath& relativePath, KVLSession& session,
                                    kvl::DataTaskHandler completionHandler = nullptr,
                                    const FormOptions& options = {});

/// `submitForm:relativePath:session:` The same with no additional inputs and no handler.
KVL_EXPORT kvl::Exchange submitForm(DictionaryOrNone form, const RelativePath& relativePath,
                                    KVLSession& session);

}  // namespace KVLEncoding
