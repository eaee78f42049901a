// A catalogue of translations, as msgfmt makes it of a translator's file.
#pragma once

#include "platform/core/PluralForms.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kvl::core {

// A text that may be translated. Views are valid during a call.
struct Message {
  std::string_view english;
  std::string_view context = {};
  std::optional<std::uint64_t> count = {};  // for a text about so many things
};

// Immutable; any thread. The C library's own reader would do but for two things: it knows no
// language whose locale the system lacks, as most containers do, and it follows the locale of the
// process, which is the host's to choose.
class Catalogue {
 public:
  // Null for what is no catalogue in UTF-8, or a broken one.
  [[nodiscard]] static std::unique_ptr<const Catalogue> make(std::string content);

  // Valid as long as the catalogue.
  [[nodiscard]] std::optional<std::string_view> find(const Message& message) const;

 private:
  enum class Table : std::uint32_t { originals = 12, translations = 16 };

  explicit Catalogue(std::string content) : content_(std::move(content)) {}
  [[nodiscard]] bool isSound();
  [[nodiscard]] std::optional<std::uint32_t> numberAt(std::size_t offset) const;
  [[nodiscard]] std::optional<std::string_view> entry(Table table, std::size_t index) const;
  [[nodiscard]] std::string_view original(std::size_t index) const;
  [[nodiscard]] std::optional<std::string_view> translation(std::string_view key) const;

  const std::string content_;
  bool isSwapped_ = false;
  std::size_t size_ = 0;
  std::optional<PluralForms> plurals_;
};

}  // namespace kvl::core
