/// @file
/// The framework's log as a part of Qt's.
#pragma once

#include <local/platform/Export.h>

#include <memory>

namespace kvl::qt {

/// As long as one lives, the lines of the framework's log are messages of Qt's, in categories such
/// as "kvlocal.session" (see `kvl::nameOf`), instead of lines of the system log. Rules decide which
/// of them are seen, as for any other category:
///
/// ```
/// QT_LOGGING_RULES="kvlocal.*.info=false;kvlocal.session.debug=true"
/// ```
///
/// Notices are of the type information. A sink of lines that the host has set (`kvl::setLogSink`)
/// gets all lines as before. Messages come on whichever thread logs; a message handler must not
/// wait for another one. Of several that live the one made last is used; they are destroyed in the
/// opposite order. Then the sink of records that was set before is set again.
class KVL_EXPORT LogBridge {
 public:
  /// Takes over from the one before, if one lives.
  LogBridge();
  ~LogBridge();
  LogBridge(const LogBridge&) = delete;
  LogBridge& operator=(const LogBridge&) = delete;

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
