/// @file
/// Answers that go into a file.
#pragma once

#include <local/KVLEncodingRoot.h>
#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/Export.h>
#include <local/platform/URLRequest.h>

#include <filesystem>
#include <functional>
#include <optional>

namespace KVLEncoding {

/// What a download came to: either a file or a reason why there is none.
struct DownloadResult {
  /// The whole answer, at the place that was asked for, as an absolute path.
  std::optional<std::filesystem::path> file;
  kvl::URLResponseRef response;  ///< null where no answer has come
  /// Of an answer whose status is not 200 to 299, or is 206, a part: the first 64 KiB of what the
  /// service says.
  std::optional<kvl::Data> body;
  std::optional<kvl::Error> error;  ///< why there is no file; none where there is one
};

/// What a download wants beside the usual.
struct DownloadOptions : kvl::RequestOptions {
  /// Whether a file that has the name already gives way. Otherwise it stays, and the download fails
  /// with `NSPOSIXErrorDomain`, `EEXIST`, at its end.
  bool replaces = true;
};

/// Receives the result. Called once.
using DownloadHandler = std::function<void(DownloadResult result)>;

/// Fetches a document of any kind and size into `file`, in little memory: a service that is faster
/// than the disk is held back.
///
/// The answer is written to a file of its own in the same folder, `.NAME.` with six letters more,
/// made with the permissions that the process gives to new files; at the end it takes the name,
/// in one step. A link of that name is replaced, not followed. Until then what is there stays as it
/// is; when there is no success it stays for good, and the other file has gone before the handler
/// is called. Nothing waits for the disk to have it all (`fsync`). A process that is killed leaves
/// the other file behind.
///
/// @param file a relative path counts from the folder that the process is in at the call.
/// @param completionHandler called on the main queue, or on `options.queue`; never before this
///   returns. What goes wrong with the file is an error in `NSPOSIXErrorDomain` with
///   `NSFilePathErrorKey`; the transfer is then broken off. An answer without success brings its
///   beginning and no error. Without a handler errors are written to the log.
/// @param options an empty answer makes an empty file, or none as `emptyAnswer` says; where it is
///   to be an error that is `KVLEncodingErrorDomain`, 204.
/// @return a handle of the download. Once the file has its name, `cancel` does nothing any more.
KVL_EXPORT kvl::Exchange downloadFromSession(KVLSession& session, const RelativePath& relativePath,
                                             const std::filesystem::path& file,
                                             DownloadHandler completionHandler,
                                             const DownloadOptions& options = {});

}  // namespace KVLEncoding
