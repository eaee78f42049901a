// The system calls that the decoder's processes may make.
#pragma once

namespace kvl::decoder {

enum class DeniedCall {
  kError,  // it fails with EPERM
  kTrap    // it raises SIGSYS, for tests of what the decoders call
};

// A list of rules, made ahead so that nothing but applying them is left to do.
class SystemCallFilter {
 public:
  // What the parent may do: start and watch workers, and whatever decoding needs, as workers
  // inherit the filter.
  [[nodiscard]] static SystemCallFilter forParent(DeniedCall denied);
  // Takes away what only the parent needs, and all that a worker does no more.
  [[nodiscard]] static SystemCallFilter forWorker(DeniedCall denied);

  ~SystemCallFilter();
  SystemCallFilter(SystemCallFilter&& other) noexcept;
  SystemCallFilter& operator=(SystemCallFilter&&) = delete;

  // For good: the calling thread and whatever it starts. Privileges must have been given up. False
  // when the system has no filters.
  [[nodiscard]] bool apply() const;

 private:
  explicit SystemCallFilter(void* rules) noexcept : rules_(rules) {}

  void* rules_;  // null when there was not the memory for them
};

}  // namespace kvl::decoder
