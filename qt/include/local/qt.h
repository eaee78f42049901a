/// @file
/// The whole Qt 6 binding: views that show what the framework holds as data.
///
/// Everything in `kvl::qt` belongs to the GUI thread, while what it shows may change on any thread:
/// the views follow on theirs. Link `KVLocal::qt6`.
#pragma once

#include <local/qt/Conversions.h>
#include <local/qt/Integration.h>
#include <local/qt/MenuView.h>
#include <local/qt/ProgressView.h>
#include <local/qt/SegmentedControlView.h>
