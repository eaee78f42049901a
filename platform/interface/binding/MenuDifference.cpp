#include "platform/interface/binding/MenuDifference.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

namespace kvl::interface {
namespace {

// The rows of each item, the first one at the end.
using RowsOfItems = std::unordered_map<const MenuItem*, std::vector<std::size_t>>;

RowsOfItems rowsOfItems(const std::vector<const MenuItem*>& items) {
  RowsOfItems rows;
  for (std::size_t i = items.size(); i-- > 0;) rows[items[i]].push_back(i);
  return rows;
}

std::optional<std::size_t> takeRow(RowsOfItems& rows, const MenuItem* item) {
  const auto found = rows.find(item);
  if (found == rows.end() || found->second.empty()) return std::nullopt;
  const auto row = found->second.back();
  found->second.pop_back();
  return row;
}

using Kept = std::vector<MenuDifference::Row*>;

// As many rows as can be that were in this order before: for each length of such a sequence the
// last row of the one that ends earliest, and for each row the one before it.
Kept longestInOrder(const Kept& rows) {
  const auto placeOf = [&](std::size_t i) { return *rows[i]->previous; };
  std::vector<std::size_t> ends;
  std::vector<std::optional<std::size_t>> before(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto end = std::ranges::lower_bound(ends, placeOf(i), {}, placeOf);
    if (end != ends.begin()) before[i] = *std::prev(end);
    if (end == ends.end())
      ends.push_back(i);
    else
      *end = i;
  }
  Kept longest;
  auto next = ends.empty() ? std::nullopt : std::optional(ends.back());
  for (; next; next = before[*next]) longest.push_back(rows[*next]);
  return longest;
}

void markMoved(MenuDifference& result) {
  Kept kept;
  for (auto& row : result.rows)
    if (row.previous) kept.push_back(&row);
  for (auto* row : kept) row->moved = true;
  for (auto* row : longestInOrder(kept)) row->moved = false;
}

}  // namespace

MenuDifference menuDifference(const std::vector<const MenuItem*>& before,
                              const std::vector<std::shared_ptr<MenuItem>>& after) {
  MenuDifference result;
  auto left = rowsOfItems(before);
  std::vector<bool> taken(before.size());
  for (const auto& item : after) {
    const auto previous = takeRow(left, item.get());
    if (previous) taken[*previous] = true;
    result.rows.push_back({previous, false});
  }
  for (std::size_t i = 0; i < before.size(); ++i)
    if (!taken[i]) result.gone.push_back(i);
  markMoved(result);
  return result;
}

}  // namespace kvl::interface
