#include <local/platform/Data.h>

#include <cstring>
#include <utility>

namespace kvl {

Data::Data(Bytes bytes) {
  auto owner = std::make_shared<const Bytes>(std::move(bytes));
  bytes_ = *owner;
  owner_ = std::move(owner);
}

Data Data::fromText(std::string_view text) {
  return adoptingText(std::string(text));
}

Data Data::adoptingText(std::string text) {
  auto owner = std::make_shared<const std::string>(std::move(text));
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(owner->data());
  const std::size_t size = owner->size();
  return {std::move(owner), {bytes, size}};
}

bool operator==(const Data& a, const Data& b) noexcept {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0);
}

}  // namespace kvl
