// The catalogues of all languages, each read when it is first asked for.
#pragma once

#include "platform/core/Catalogue.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::core {

// Any thread, and without a lock, so that a child of fork(2) may go on with it.
class Catalogues {
 public:
  struct Folders {
    std::vector<std::filesystem::path> paths;
    bool areAll = true;  // else there may be more when they are asked for again
  };
  using Places = std::function<Folders()>;

  // The folders hold LANGUAGE/LC_MESSAGES/kvlocal-0.1.mo; the first one that has a file counts.
  // They are asked for when a file is.
  explicit Catalogues(Places places);
  ~Catalogues();
  Catalogues(const Catalogues&) = delete;
  Catalogues& operator=(const Catalogues&) = delete;

  // The text in the first of the locales, POSIX names with colons between them, that has it; absent
  // when there is none, and where English comes before it. Valid as long as this object.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view locales,
                                                     const Message& message);

 private:
  struct Entry;

  [[nodiscard]] const Catalogue* catalogue(const std::string& language);
  [[nodiscard]] const Catalogue* kept(Entry* entry);
  [[nodiscard]] std::optional<std::string_view> findIn(std::string_view locale,
                                                       const Message& message);

  const Places places_;
  std::atomic<const Entry*> newest_ = nullptr;
};

// Those of this library.
[[nodiscard]] Catalogues& ownCatalogues();

}  // namespace kvl::core
