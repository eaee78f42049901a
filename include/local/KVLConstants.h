/// @file
/// Constants for hosts that no operation of the framework uses.
#pragma once

#include <local/platform/Export.h>

#include <string_view>

/// Uniform type identifier of the host's schedule documents.
inline constexpr std::string_view kKVAUTISchedule = "korvale.vandrel.schedule";
/// File extension of the host's schedule documents.
inline constexpr std::string_view kKVAFileExtensionSchedule = "vr-schedule";
