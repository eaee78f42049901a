// The folder beside the library with what it loads and starts, and its catalogues' name. The part
// of the version that the binary interface depends on is in it, so that libraries of two such
// versions may be installed beside each other. cmake/KVLTargets.cmake says the same.
#pragma once

#include <local/platform/Version.h>

#define KVL_PARTS_FOLDER_OF(major, minor) "kvlocal-" #major "." #minor
#define KVL_PARTS_FOLDER_FOR(major, minor) KVL_PARTS_FOLDER_OF(major, minor)
#define KVL_PARTS_FOLDER KVL_PARTS_FOLDER_FOR(KVL_VERSION_MAJOR, KVL_VERSION_MINOR)
