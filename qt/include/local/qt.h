/// @file
/// The whole Qt 6 binding: a session as an object of Qt, models, forms, and views that show what
/// the framework holds as data.
///
/// Everything in `kvl::qt` belongs to the GUI thread, while what it shows may change on any thread:
/// the views follow on theirs. Link `KVLocal::qt6`.

/// @namespace kvl::qt
/// What hosts with Qt use.
#pragma once

#include <local/qt/Conversions.h>
#include <local/qt/DocumentModel.h>
#include <local/qt/DocumentTree.h>
#include <local/qt/EventListModel.h>
#include <local/qt/Events.h>
#include <local/qt/Fetched.h>
#include <local/qt/FormDialog.h>
#include <local/qt/GuiThread.h>
#include <local/qt/ImageSource.h>
#include <local/qt/Integration.h>
#include <local/qt/LogBridge.h>
#include <local/qt/MenuView.h>
#include <local/qt/Notice.h>
#include <local/qt/ProgressView.h>
#include <local/qt/SegmentedControlView.h>
#include <local/qt/SessionObject.h>
#include <local/qt/TextDelegate.h>
