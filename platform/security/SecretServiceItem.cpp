#include "platform/security/SecretServiceItem.h"

#include "platform/security/KeyStore.h"

#include <algorithm>
#include <cstring>

namespace kvl::security {
namespace {

constexpr auto kSchemaName = "korvale.vandrel.local.key";
constexpr auto kSchemaAttribute = "xdg:schema";
constexpr auto kTagAttribute = "tag";
constexpr auto kClassAttribute = "class";
constexpr auto kCommentAttribute = "comment";
constexpr auto kDescriptionAttribute = "description";
constexpr auto kMakerAttribute = "maker";

constexpr auto kPrivateClass = "private";
constexpr auto kPublicClass = "public";
constexpr auto kPrivateContent = "application/pkcs8";
constexpr auto kPublicContent = "application/x-x509-public-key";

const char* classText(Key::Class keyClass) {
  return keyClass == Key::Class::privateKey ? kPrivateClass : kPublicClass;
}

// A null value counts as absent.
void add(GVariantBuilder& attributes, const char* name, const char* value) {
  if (value != nullptr) g_variant_builder_add(&attributes, "{ss}", name, value);
}

GVariant* attributesOf(const StoredKey& key, const std::optional<std::string>& maker) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  add(builder, kSchemaAttribute, kSchemaName);
  add(builder, kTagAttribute, key.tag.c_str());
  add(builder, kClassAttribute, classText(key.keyClass));
  add(builder, kCommentAttribute, key.comment.c_str());
  add(builder, kDescriptionAttribute, key.description.c_str());
  add(builder, kMakerAttribute, maker ? maker->c_str() : nullptr);
  return g_variant_builder_end(&builder);
}

std::string attribute(GVariant* attributes, const char* name) {
  const char* value = nullptr;
  return g_variant_lookup(attributes, name, "&s", &value) != FALSE ? value : std::string();
}

// A copy of key bytes that knows its size, so that whoever frees it last can wipe it.
class SizedBlock {
 public:
  static char* make(const WipedBytes& bytes) {
    auto* block = static_cast<char*>(g_malloc(sizeof(std::size_t) + bytes.size()));
    const std::size_t size = bytes.size();
    std::memcpy(block, &size, sizeof size);
    std::ranges::copy(bytes, block + sizeof size);
    return block + sizeof size;
  }
  static void destroy(void* content) {
    char* block = static_cast<char*>(content) - sizeof(std::size_t);
    std::size_t size = 0;
    std::memcpy(&size, block, sizeof size);
    wipe(content, size);
    g_free(block);
  }
};

}  // namespace

GLibPtr<GVariant> matchingAttributes(std::optional<std::string_view> tag,
                                     std::optional<Key::Class> keyClass) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  add(builder, kSchemaAttribute, kSchemaName);
  if (tag) add(builder, kTagAttribute, std::string(*tag).c_str());
  if (keyClass) add(builder, kClassAttribute, classText(*keyClass));
  return GLibPtr<GVariant>(g_variant_ref_sink(g_variant_builder_end(&builder)));
}

GLibPtr<GVariant> itemProperties(const StoredKey& key, const std::optional<std::string>& maker) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Label",
                        g_variant_new_string(key.label.c_str()));
  g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                        attributesOf(key, maker));
  return GLibPtr<GVariant>(g_variant_ref_sink(g_variant_builder_end(&builder)));
}

ValuePtr itemValue(const StoredKey& key) {
  const bool isPrivate = key.keyClass == Key::Class::privateKey;
  return ValuePtr(
      secret_value_new_full(SizedBlock::make(key.encoded), static_cast<gssize>(key.encoded.size()),
                            isPrivate ? kPrivateContent : kPublicContent, &SizedBlock::destroy));
}

std::optional<StoredKey> keyOfItem(GVariant* properties, SecretValue* value) {
  const GLibPtr<GVariant> attributes(
      g_variant_lookup_value(properties, "Attributes", G_VARIANT_TYPE("a{ss}")));
  const char* label = nullptr;
  g_variant_lookup(properties, "Label", "&s", &label);
  if (!attributes) return std::nullopt;
  const std::string keyClass = attribute(attributes.get(), kClassAttribute);
  if (keyClass != kPrivateClass && keyClass != kPublicClass) return std::nullopt;
  gsize size = 0;
  const char* bytes = secret_value_get(value, &size);
  StoredKey key{attribute(attributes.get(), kTagAttribute),
                keyClass == kPrivateClass ? Key::Class::privateKey : Key::Class::publicKey,
                label == nullptr ? "" : label,
                attribute(attributes.get(), kCommentAttribute),
                attribute(attributes.get(), kDescriptionAttribute),
                WipedBytes(bytes, bytes + size)};
  if (checkStorable(key) != kSuccess) return std::nullopt;
  return key;
}

std::string makerOfItem(GVariant* attributes) {
  return attribute(attributes, kMakerAttribute);
}

}  // namespace kvl::security
