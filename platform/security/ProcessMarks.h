// Who made an entry of a store that outlives processes, so that what a program left behind when it
// was killed can be told from what a running one uses.
#pragma once

#include <local/platform/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace kvl::security {

// Short texts, "1.place.process.start": the place stands for the boot of the machine and the
// namespaces of processes and time; within it the number of a process and the time of its start
// name one process for ever. Exported for the library's own modules.
class KVL_EXPORT ProcessMarks {
 public:
  // Reads in /proc where this process is. For one use: a child of fork(2) is another process.
  ProcessMarks();

  // This process's own mark. Absent without /proc, or with that of another namespace.
  [[nodiscard]] std::optional<std::string> own() const;

  // Whether the process that made the mark has ended for certain. False for what cannot be seen
  // from here: marks of other places and of another shape.
  [[nodiscard]] bool isOfEndedProcess(std::string_view mark) const;

 private:
  std::string place_;  // empty when unknown
};

}  // namespace kvl::security
