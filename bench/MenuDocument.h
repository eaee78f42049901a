// The document that the benchmarks read and write.
#pragma once

#include <cstddef>
#include <string>

namespace kvlbench {

// A menu as compact JSON of about `size` bytes: items with titles, identifiers, badges, forms and
// submenus. The same text for the same size.
[[nodiscard]] std::string menuDocument(std::size_t size);

// The keys of an item that has everything.
inline constexpr const char* kMenuItemKeys[] = {"title",   "identifier", "subtitle", "enabled",
                                                "hidden",  "badge",      "width",    "image",
                                                "tooltip", "form",       "items"};

}  // namespace kvlbench
