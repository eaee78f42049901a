#include "platform/core/Catalogues.h"

#include "platform/core/FileContent.h"
#include "platform/core/MessageLocales.h"
#include "platform/core/NoDestructor.h"
#include "platform/core/OwnFile.h"
#include "platform/core/PartsFolder.h"

#include <local/platform/Log.h>
#include <local/platform/Translation.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kvl::core {

struct Catalogues::Entry {
  std::string language;
  std::unique_ptr<const Catalogue> catalogue;  // null for a language that has none
  const Entry* older;
};

namespace {

constexpr std::size_t kLargestFile = std::size_t{4} << 20;
// A process has one or two; names beyond that come from somebody who tries out what happens.
constexpr std::size_t kMostLanguages = 64;

// What was found at a place. Only what is sure to stay so is remembered.
struct Found {
  std::string content;
  int error = 0;
};

Found read(const std::filesystem::path& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return {{}, errno};
  std::optional<Error> error;
  const auto file = FileContent::make(descriptor, &error);
  close(descriptor);
  Found found;
  if (!file && error && error->code() != EINVAL) return {{}, static_cast<int>(error->code())};
  if (!file || file->size() > kLargestFile) return found;
  error = file->appendTo(found.content);
  if (error) found.content.clear();
  return found;
}

bool isNowhere(int error) {
  return error == ENOENT || error == ENOTDIR || error == EACCES || error == ENAMETOOLONG;
}

// Locales' names come from outside and become part of a path.
bool isName(std::string_view text) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@";
  return !text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos;
}

// "de_AT.UTF-8@euro": what the catalogue may be called, the nearest first. Catalogues are UTF-8
// whatever the locale is.
std::vector<std::string> namesOf(std::string_view locale) {
  const std::string_view plain = locale.substr(0, locale.find_first_of(".@"));
  const std::size_t at = locale.find('@');
  const std::string modifier(at == std::string_view::npos ? "" : locale.substr(at));
  const std::string_view language = plain.substr(0, plain.find('_'));
  std::vector<std::string> names;
  for (const std::string& name : {std::string(plain) + modifier, std::string(plain),
                                  std::string(language) + modifier, std::string(language)})
    if (isName(name) && std::ranges::find(names, name) == names.end()) names.push_back(name);
  return names;
}

// The language of the texts themselves.
bool isEnglish(std::string_view locale) {
  const std::string_view language = locale.substr(0, locale.find_first_of("_.@"));
  return language == "en" || withoutCLocale(std::string(locale)) == kCLocale;
}

// Beside the library as it is installed and as it is built, else where it was to be installed.
Catalogues::Folders foldersOfLibrary() {
  Catalogues::Folders folders;
  for (const char* beside : {KVL_LOCALE_FROM_LIBRARY, "../share/locale"})
    for (auto& place : placesBesideLibrary(beside)) {
      folders.paths.push_back(std::move(place));
      break;
    }
  folders.areAll = !folders.paths.empty();
  folders.paths.emplace_back(KVL_LOCALE_DIR);
  return folders;
}

}  // namespace

Catalogues::Catalogues(Places places) : places_(std::move(places)) {}

Catalogues::~Catalogues() {
  for (const Entry* entry = newest_; entry != nullptr;) delete std::exchange(entry, entry->older);
}

const Catalogue* Catalogues::catalogue(const std::string& language) {
  std::size_t count = 0;
  for (const Entry* entry = newest_; entry != nullptr; entry = entry->older, ++count)
    if (entry->language == language) return entry->catalogue.get();
  if (count >= kMostLanguages) return nullptr;
  auto entry = std::make_unique<Entry>(Entry{language, nullptr, nullptr});
  const Folders folders = places_();
  for (const auto& folder : folders.paths) {
    const auto path = folder / language / "LC_MESSAGES" / KVL_PARTS_FOLDER ".mo";
    Found found = read(path);
    if (isNowhere(found.error)) continue;
    if (found.error != 0) return nullptr;  // such as no descriptor left; the next call tries again
    entry->catalogue = Catalogue::make(std::move(found.content));
    if (!entry->catalogue)
      log(LogCategory::general, LogLevel::warning, "no catalogue of texts: %@", path.native());
    break;
  }
  if (!entry->catalogue && !folders.areAll) return nullptr;
  return kept(entry.release());
}

// Whoever reads the same file meanwhile keeps it as well; the newer one is found.
const Catalogue* Catalogues::kept(Entry* entry) {
  entry->older = newest_;
  while (!newest_.compare_exchange_weak(entry->older, entry)) {
  }
  return entry->catalogue.get();
}

std::optional<std::string_view> Catalogues::findIn(std::string_view locale,
                                                   const Message& message) {
  for (const std::string& name : namesOf(locale)) {
    const Catalogue* const known = catalogue(name);
    if (known == nullptr) continue;
    if (const auto text = known->find(message)) return text;
  }
  return std::nullopt;
}

std::optional<std::string_view> Catalogues::find(std::string_view locales, const Message& message) {
  while (!locales.empty()) {
    const std::string_view locale = locales.substr(0, locales.find(':'));
    if (isEnglish(locale)) return std::nullopt;
    if (const auto text = findIn(locale, message)) return text;
    locales.remove_prefix(std::min(locale.size() + 1, locales.size()));
  }
  return std::nullopt;
}

Catalogues& ownCatalogues() {
  static NoDestructor<Catalogues> catalogues(foldersOfLibrary);
  return *catalogues;
}

}  // namespace kvl::core

namespace kvl {

std::string translated(std::string_view english, std::string_view context) {
  const auto locales = core::userMessageLocales();
  return std::string(
      core::ownCatalogues().find(locales, {english, context, std::nullopt}).value_or(english));
}

std::string translatedForCount(std::string_view one, std::string_view many, std::uint64_t count,
                               std::string_view context) {
  const auto locales = core::userMessageLocales();
  const auto text = core::ownCatalogues().find(locales, {one, context, count});
  return std::string(text.value_or(count == 1 ? one : many));
}

}  // namespace kvl
