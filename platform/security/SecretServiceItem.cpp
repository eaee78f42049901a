#include "platform/security/SecretServiceItem.h"

#include "platform/security/KeyStore.h"

#include <cstring>

namespace kvl::security {
namespace {

constexpr auto kLabelProperty = "org.freedesktop.Secret.Item.Label";
constexpr auto kAttributesProperty = "org.freedesktop.Secret.Item.Attributes";

constexpr auto kSchemaName = "korvale.vandrel.local.key";
constexpr auto kSchemaAttribute = "xdg:schema";
constexpr auto kTagAttribute = "tag";
constexpr auto kClassAttribute = "class";
constexpr auto kCommentAttribute = "comment";
constexpr auto kDescriptionAttribute = "description";

constexpr auto kPrivateClass = "private";
constexpr auto kPublicClass = "public";
constexpr auto kPrivateContent = "application/pkcs8";
constexpr auto kPublicContent = "application/x-x509-public-key";

const char* classText(Key::Class keyClass) {
  return keyClass == Key::Class::privateKey ? kPrivateClass : kPublicClass;
}

GVariant* attributesVariant(const StoredKey& key) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  const std::pair<const char*, const char*> attributes[] = {
      {kSchemaAttribute, kSchemaName},
      {kTagAttribute, key.tag.c_str()},
      {kClassAttribute, classText(key.keyClass)},
      {kCommentAttribute, key.comment.c_str()},
      {kDescriptionAttribute, key.description.c_str()}};
  for (const auto& [name, value] : attributes) g_variant_builder_add(&builder, "{ss}", name, value);
  return g_variant_builder_end(&builder);
}

std::string attribute(GHashTable* attributes, const char* name) {
  const auto* value = static_cast<const char*>(g_hash_table_lookup(attributes, name));
  return value == nullptr ? std::string() : value;
}

// A copy of key bytes that knows its size, so that whoever frees it last can wipe it.
class SizedBlock {
 public:
  static char* make(const WipedBytes& bytes) {
    auto* block = static_cast<char*>(g_malloc(sizeof(std::size_t) + bytes.size()));
    const std::size_t size = bytes.size();
    std::memcpy(block, &size, sizeof size);
    std::memcpy(block + sizeof size, bytes.data(), size);
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

const SecretSchema& itemSchema() {
  static const SecretSchema schema = [] {
    SecretSchema made{};
    made.name = kSchemaName;
    made.flags = SECRET_SCHEMA_NONE;
    std::size_t next = 0;
    for (const char* name :
         {kTagAttribute, kClassAttribute, kCommentAttribute, kDescriptionAttribute})
      made.attributes[next++] = {name, SECRET_SCHEMA_ATTRIBUTE_STRING};
    return made;
  }();
  return schema;
}

GLibPtr<GHashTable> matchingAttributes(std::optional<std::string_view> tag,
                                       std::optional<Key::Class> keyClass) {
  GLibPtr<GHashTable> attributes(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, g_free));
  const auto set = [&](const char* name, std::string_view value) {
    g_hash_table_replace(attributes.get(), const_cast<char*>(name),
                         g_strndup(value.data(), value.size()));
  };
  if (tag) set(kTagAttribute, *tag);
  if (keyClass) set(kClassAttribute, classText(*keyClass));
  return attributes;
}

GLibPtr<GHashTable> itemProperties(const StoredKey& key) {
  const auto release = [](gpointer variant) { g_variant_unref(static_cast<GVariant*>(variant)); };
  GLibPtr<GHashTable> properties(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, release));
  const auto set = [&](const char* name, GVariant* value) {
    g_hash_table_replace(properties.get(), const_cast<char*>(name), g_variant_ref_sink(value));
  };
  set(kLabelProperty, g_variant_new_string(key.label.c_str()));
  set(kAttributesProperty, attributesVariant(key));
  return properties;
}

ValuePtr itemValue(const StoredKey& key) {
  const bool isPrivate = key.keyClass == Key::Class::privateKey;
  return ValuePtr(
      secret_value_new_full(SizedBlock::make(key.encoded), static_cast<gssize>(key.encoded.size()),
                            isPrivate ? kPrivateContent : kPublicContent, &SizedBlock::destroy));
}

std::optional<StoredKey> keyOfItem(SecretItem* item) {
  const ValuePtr value(secret_item_get_secret(item));
  const GLibPtr<GHashTable> attributes(secret_item_get_attributes(item));
  const GLibPtr<char> label(secret_item_get_label(item));
  if (!value || !attributes) return std::nullopt;
  const std::string keyClass = attribute(attributes.get(), kClassAttribute);
  if (keyClass != kPrivateClass && keyClass != kPublicClass) return std::nullopt;
  gsize size = 0;
  const char* bytes = secret_value_get(value.get(), &size);
  StoredKey key{attribute(attributes.get(), kTagAttribute),
                keyClass == kPrivateClass ? Key::Class::privateKey : Key::Class::publicKey,
                label ? label.get() : "",
                attribute(attributes.get(), kCommentAttribute),
                attribute(attributes.get(), kDescriptionAttribute),
                WipedBytes(bytes, bytes + size)};
  if (checkStorable(key) != kSuccess) return std::nullopt;
  return key;
}

}  // namespace kvl::security
