#include <local/KVLEncoding.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/platform/Log.h>

#include <string>

namespace KVLEncoding {
namespace {

constexpr std::string_view kNoString = "expect %@ as string in dictionary %@";
constexpr std::string_view kNoBoolean = "expect %@ as boolean in dictionary %@";
constexpr std::string_view kNoInteger = "expect %@ as integer in dictionary %@";
constexpr std::string_view kNoRFC3339Date = "expect %@ as RFC3339 date in dictionary %@";
constexpr std::string_view kNoDate = "expect %@ as date in dictionary %@";
constexpr std::string_view kNoDictionary = "expect %@ as dictionary in dictionary %@";
constexpr std::string_view kNoArray = "expect %@ as array in dictionary %@";

// The stored object when it is a `T`. Another one is reported with `diagnostic`, unless it is null.
template <class T>
std::optional<T> storedObject(DictionaryOrNone dictionary, std::string_view key,
                              std::string_view diagnostic) {
  if (!dictionary) return std::nullopt;
  const kvl::Value& value = (*dictionary)[key];
  auto object = value.as<T>();
  if (!object && !value.isNull())
    kvl::log(kvl::LogCategory::documents, kvl::LogLevel::warning, diagnostic, key, *dictionary);
  return object;
}

template <class T>
std::optional<T> objectOrFallback(DictionaryOrNone dictionary, std::string_view key,
                                  const std::optional<T>& fallback, std::string_view diagnostic) {
  auto object = storedObject<T>(dictionary, key, diagnostic);
  if (!object) object = fallback;
  return object;  // one variable, which is made in its place: each copy counts as a reference
}

// A date written as text; the empty text is absent.
std::optional<kvl::Date> dateFromText(DictionaryOrNone dictionary, std::string_view key,
                                      std::string_view text) {
  const auto date = KVLExtensions::dateFromRFC3339(text);
  if (!date && !text.empty())
    kvl::log(kvl::LogCategory::documents, kvl::LogLevel::warning, kNoRFC3339Date, key, *dictionary);
  return date;
}

}  // namespace

constinit std::string_view KVLEncodingErrorDomain = "korvale.vandrel.local.encoding";

bool existsInDictionary(DictionaryOrNone dictionary, std::string_view key) {
  return dictionary && !(*dictionary)[key].isNull();
}

std::optional<kvl::String> stringFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                                                const std::optional<kvl::String>& fallback) {
  return objectOrFallback(dictionary, key, fallback, kNoString);
}

bool boolFromDictionary(DictionaryOrNone dictionary, std::string_view key, bool fallback) {
  const auto number = storedObject<kvl::Number>(dictionary, key, kNoBoolean);
  return number ? number->boolean() : fallback;
}

std::optional<kvl::Number> optionalBoolFromDictionary(DictionaryOrNone dictionary,
                                                      std::string_view key,
                                                      const std::optional<kvl::Number>& fallback) {
  return objectOrFallback(dictionary, key, fallback, kNoBoolean);
}

std::int64_t integerFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                                   std::int64_t fallback) {
  const auto number = storedObject<kvl::Number>(dictionary, key, kNoInteger);
  return number ? number->integer() : fallback;
}

kvl::Rect rectFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                             kvl::Rect fallback) {
  if (!dictionary) return fallback;
  kvl::Rect rect;
  const std::pair<std::string_view, double*> components[] = {
      {"X", &rect.x}, {"Y", &rect.y}, {"Width", &rect.width}, {"Height", &rect.height}};
  for (const auto& [name, component] : components) {
    const std::string componentKey = std::string(key).append(name);
    if (!dictionary->contains(componentKey)) return fallback;
    *component = static_cast<double>(integerFromDictionary(dictionary, componentKey, 0));
  }
  return rect;
}

std::optional<kvl::Date> dateFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                                            std::optional<kvl::Date> fallback) {
  if (!dictionary) return fallback;
  const auto text = (*dictionary)[key].string();
  const auto date = text ? dateFromText(dictionary, key, *text)
                         : storedObject<kvl::Date>(dictionary, key, kNoDate);
  return date ? date : fallback;
}

std::optional<kvl::Dictionary> dictionaryFromDictionary(
    DictionaryOrNone dictionary, std::string_view key,
    const std::optional<kvl::Dictionary>& fallback) {
  return objectOrFallback(dictionary, key, fallback, kNoDictionary);
}

std::optional<kvl::Array> arrayFromDictionary(DictionaryOrNone dictionary, std::string_view key,
                                              const std::optional<kvl::Array>& fallback) {
  return objectOrFallback(dictionary, key, fallback, kNoArray);
}

}  // namespace KVLEncoding
