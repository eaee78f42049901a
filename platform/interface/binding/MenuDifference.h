// What has changed between two states of a menu.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace kvl {
class MenuItem;
}

namespace kvl::interface {

// How a view that showed some items comes to show others. The same item may be in a list twice:
// then each has a row of its own.
struct MenuDifference {
  struct Row {
    std::optional<std::size_t> previous;  // which row it was before; none for a new one
    bool moved = false;                   // it was there before, but not between these neighbours
  };
  std::vector<Row> rows;          // as many as there are items now
  std::vector<std::size_t> gone;  // the previous rows that are none any more
};

// What becomes of the rows of `before` when they have to show `after`. As few as possible are
// moved. Any thread.
[[nodiscard]] MenuDifference menuDifference(const std::vector<const MenuItem*>& before,
                                            const std::vector<std::shared_ptr<MenuItem>>& after);

}  // namespace kvl::interface
