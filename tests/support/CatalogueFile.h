// Catalogues of texts, as msgfmt writes them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

namespace kvltest {

inline constexpr const char* kGermanHead =
    "Content-Type: text/plain; charset=UTF-8\nPlural-Forms: nplurals=2; plural=(n != 1);\n";

// The bytes of a catalogue with these translations, besides its head; with `isSwapped`, of a
// machine with the other order of bytes.
inline std::string catalogueFile(std::map<std::string, std::string> texts,
                                 const std::string& head = kGermanHead, bool isSwapped = false) {
  texts[""] = head;
  const auto size = static_cast<std::uint32_t>(texts.size());
  std::string numbers;
  std::string content;
  const auto add = [&numbers, isSwapped](std::uint32_t number) {
    std::string bytes(reinterpret_cast<const char*>(&number), sizeof number);
    if (isSwapped) std::reverse(bytes.begin(), bytes.end());
    numbers += bytes;
  };
  constexpr std::uint32_t kHeadSize = 28;
  const std::uint32_t begin = kHeadSize + size * 16;
  for (const std::uint32_t number :
       {0x950412DEU, 0U, size, kHeadSize, kHeadSize + size * 8, 0U, begin})
    add(number);
  const auto addEntry = [&](const std::string& text) {
    add(static_cast<std::uint32_t>(text.size()));
    add(begin + static_cast<std::uint32_t>(content.size()));
    content += text + '\0';
  };
  for (const auto& [original, translation] : texts) addEntry(original);
  for (const auto& [original, translation] : texts) addEntry(translation);
  return numbers + content;
}

}  // namespace kvltest
