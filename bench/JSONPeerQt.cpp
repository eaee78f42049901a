#include "bench/JSONPeer.h"

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QJsonDocument>

namespace kvlbench {
namespace {

class Qt final : public JSONPeer {
 public:
  void readAndDrop(const std::string& text) override {
    const auto bytes = QByteArray::fromRawData(text.data(), static_cast<qsizetype>(text.size()));
    benchmark::DoNotOptimize(QJsonDocument::fromJson(bytes));
  }
};

const bool registered =
    compareReading("Qt", []() -> std::unique_ptr<JSONPeer> { return std::make_unique<Qt>(); });

}  // namespace
}  // namespace kvlbench
