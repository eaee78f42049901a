/// @file
/// Who the host application is.
#pragma once

#include <local/platform/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvl {

/// Sets the host application's identifier, in reverse-domain form such as `org.example.Editor`.
/// The client keys are stored under it, so call it once, before the first notary is made. It is
/// the same for all processes of one application and different for different applications. An
/// empty text clears it. May be called from any thread.
KVL_EXPORT void setHostIdentifier(std::string_view identifier);

/// The identifier that was set; without one, the id of the default `GApplication`; else absent.
[[nodiscard]] KVL_EXPORT std::optional<std::string> hostIdentifier();

}  // namespace kvl
