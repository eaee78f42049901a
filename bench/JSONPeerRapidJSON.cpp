#include "bench/JSONPeer.h"
#include "bench/MenuDocument.h"

#ifdef __SSE2__
#define RAPIDJSON_SSE2
#endif

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace kvlbench {
namespace {

using rapidjson::SizeType;

class Lookup {
 public:
  std::size_t items(const rapidjson::Value& array) {
    std::size_t sum = 0;
    for (const auto& item : array.GetArray()) sum += this->item(item);
    return sum;
  }

 private:
  std::size_t item(const rapidjson::Value& item) {
    std::size_t sum = 0;
    for (const auto& key : keys_) {
      const auto found = item.FindMember(key);
      if (found != item.MemberEnd()) sum += value(found->value);
    }
    const auto children = item.FindMember("items");
    return children != item.MemberEnd() ? sum + items(children->value) : sum;
  }

  static std::size_t value(const rapidjson::Value& value) {
    if (value.IsString()) return value.GetStringLength();
    if (value.IsBool()) return value.GetBool() ? 1 : 0;
    if (value.IsInt64()) return static_cast<std::size_t>(value.GetInt64());
    if (value.IsDouble()) return static_cast<std::size_t>(value.GetDouble());
    if (value.IsArray()) return value.Size();
    if (value.IsObject()) return value.MemberCount();
    return 0;
  }

  static std::vector<rapidjson::Value> makeKeys() {
    std::vector<rapidjson::Value> keys;
    for (const char* key : kMenuItemKeys) keys.emplace_back(rapidjson::StringRef(key));
    return keys;
  }

  std::vector<rapidjson::Value> keys_ = makeKeys();
};

class RapidJSON final : public JSONTreePeer {
 public:
  void readAndDrop(const std::string& text) override {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    benchmark::DoNotOptimize(document);
  }

  void load(const std::string& text) override { document_.Parse(text.data(), text.size()); }

  std::size_t lookUpAll() override { return lookup_.items(document_["items"]); }

  std::size_t write() override {
    buffer_.Clear();
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer_);
    document_.Accept(writer);
    return buffer_.GetSize();
  }

 private:
  rapidjson::Document document_;
  rapidjson::StringBuffer buffer_;
  Lookup lookup_;
};

const bool registered = compareAll(
    "RapidJSON", []() -> std::unique_ptr<JSONTreePeer> { return std::make_unique<RapidJSON>(); });

}  // namespace
}  // namespace kvlbench
