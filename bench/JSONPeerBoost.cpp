#include "bench/JSONPeer.h"
#include "bench/MenuDocument.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/json/src.hpp>

namespace kvlbench {
namespace {

std::size_t sizeOf(const boost::json::value& value) {
  switch (value.kind()) {
    case boost::json::kind::string:
      return value.get_string().size();
    case boost::json::kind::bool_:
      return value.get_bool() ? 1 : 0;
    case boost::json::kind::int64:
      return static_cast<std::size_t>(value.get_int64());
    case boost::json::kind::double_:
      return static_cast<std::size_t>(value.get_double());
    case boost::json::kind::array:
      return value.get_array().size();
    case boost::json::kind::object:
      return value.get_object().size();
    default:
      return 0;
  }
}

std::size_t lookUpItems(const boost::json::array& items) {
  std::size_t sum = 0;
  for (const auto& element : items) {
    const auto& item = element.get_object();
    for (const char* key : kMenuItemKeys) {
      if (const auto* found = item.if_contains(key)) sum += sizeOf(*found);
    }
    if (const auto* children = item.if_contains("items")) sum += lookUpItems(children->get_array());
  }
  return sum;
}

class Boost final : public JSONTreePeer {
 public:
  // Into memory that is released at once: quicker than one allocation for each value.
  void readAndDrop(const std::string& text) override {
    boost::json::monotonic_resource memory;
    benchmark::DoNotOptimize(boost::json::parse(text, &memory));
  }

  void load(const std::string& text) override { document_ = boost::json::parse(text); }

  std::size_t lookUpAll() override { return lookUpItems(document_.at("items").get_array()); }

  // Into the same memory each time.
  std::size_t write() override {
    serializer_.reset(&document_);
    text_.resize(std::max(text_.size(), kRoom));
    std::size_t size = 0;
    while (!serializer_.done()) {
      if (size + kRoom > text_.size()) text_.resize(2 * text_.size());
      size += serializer_.read(text_.data() + size, text_.size() - size).size();
    }
    return size;
  }

  // 12.5 is 1.25E1.
  [[nodiscard]] bool spellsNumbersAlike() const override { return false; }

 private:
  static constexpr std::size_t kRoom = 4096;

  boost::json::value document_;
  boost::json::serializer serializer_;
  std::string text_;
};

const bool registered = compareAll(
    "Boost.JSON", []() -> std::unique_ptr<JSONTreePeer> { return std::make_unique<Boost>(); });

}  // namespace
}  // namespace kvlbench
