/// @file
/// What the framework asks of the user's desktop: to open a web address and to show an error.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>

#include <functional>
#include <string_view>

namespace kvl {

/// Opens a web address in the user's browser; false when that failed. Called on the thread that
/// needs it opened.
using URLOpener = std::function<bool(std::string_view url)>;

/// Replaces the process's opener and returns the one before. An empty function stands for the
/// desktop's own (`g_app_info_launch_default_for_uri`). Any thread.
KVL_EXPORT URLOpener setURLOpener(URLOpener opener);

/// Opens a web address through the present opener. A text that is no URL (see `URL`) is not handed
/// on; that counts as failure. The desktop's own opener returns when the program has been started,
/// and says in the log why it could not be. Any thread.
[[nodiscard]] KVL_EXPORT bool openURL(std::string_view url);

/// Shows an error to the user. Called on the main thread.
using ErrorPresenter = std::function<void(const Error& error)>;

/// Replaces the process's presenter and returns the one before. Without one, which is the default,
/// nothing is shown; whatever would be shown is in the log as well. Any thread.
KVL_EXPORT ErrorPresenter setErrorPresenter(ErrorPresenter presenter);

/// Shows an error through the present presenter. Call it on the main thread.
KVL_EXPORT void presentError(const Error& error);

}  // namespace kvl
