// Another library that reads and writes JSON, to be measured on the same documents in the same run.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace kvlbench {

// The library at its best: it may keep from one document to the next what it is made to keep.
class JSONPeer {
 public:
  virtual ~JSONPeer() = default;

  // Reads `text` into a tree and drops the tree. 64 bytes behind the text's end are readable.
  virtual void readAndDrop(const std::string& text) = 0;
};

// One that can also look up and write, what it has loaded.
class JSONTreePeer : public JSONPeer {
 public:
  virtual void load(const std::string& text) = 0;
  // The sum over all items of the sizes of what `kMenuItemKeys` have in them.
  virtual std::size_t lookUpAll() = 0;
  // The size of the tree's compact text.
  virtual std::size_t write() = 0;
  // Whether it spells numbers in the same way, so that the sizes of texts can be compared.
  [[nodiscard]] virtual bool spellsNumbersAlike() const { return true; }
};

// Registers the benchmarks of a peer that `make` makes; their names end with the peer's. True.
bool compareReading(const std::string& name, std::unique_ptr<JSONPeer> (*make)());
bool compareAll(const std::string& name, std::unique_ptr<JSONTreePeer> (*make)());

}  // namespace kvlbench
