// Large JSON documents, made while they are sent.
#pragma once

#include <cstddef>
#include <string>

namespace devservice {

// The document {"count":N,"records":[...]}, in which record i is {"number":i,"name":"record i"} and
// a text that fills it up to `kRecordSize` bytes. Any part of it can be made at any time.
class LargeDocument {
 public:
  static constexpr std::size_t kRecordSize = 128;

  explicit LargeDocument(std::size_t records);

  [[nodiscard]] std::size_t size() const noexcept;
  // Appends what lies at `offset`, at least one and at most about `most` bytes; nothing at the end.
  void append(std::string& text, std::size_t offset, std::size_t most) const;

 private:
  const std::size_t records_;
  const std::string start_;
};

}  // namespace devservice
