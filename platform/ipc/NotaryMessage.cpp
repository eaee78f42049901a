#include "platform/ipc/NotaryMessage.h"

#include "platform/ipc/ValueVariant.h"

#include <utility>

namespace kvl::ipc {
namespace {

VariantPtr optionalText(const std::optional<std::string>& text) {
  VariantPtr element = text ? variantFromText(*text) : nullptr;
  if (text && !element) return nullptr;
  GVariant* children[] = {element.get()};
  return VariantPtr(
      g_variant_ref_sink(g_variant_new_array(G_VARIANT_TYPE_STRING, children, element ? 1 : 0)));
}

std::optional<Error> readError(GVariant* element) {
  const char* domain = nullptr;
  gint64 code = 0;
  GVariant* entries = nullptr;
  g_variant_get(element, "(&sx@a{sv})", &domain, &code, &entries);
  const VariantPtr owner(entries);
  const std::optional<Dictionary> userInfo = dictionaryFromVariant(entries);
  if (!userInfo) return std::nullopt;
  return Error(domain, code, *userInfo);
}

}  // namespace

VariantPtr makeNotaryRequest(const std::optional<std::string>& path, const Dictionary& request) {
  const VariantPtr pathVariant = optionalText(path);
  const VariantPtr requestVariant = variantFromDictionary(request);
  if (!pathVariant || !requestVariant) return nullptr;
  GVariant* children[] = {pathVariant.get(), requestVariant.get()};
  return VariantPtr(g_variant_ref_sink(g_variant_new_tuple(children, std::size(children))));
}

std::optional<NotaryReply> readNotaryReply(GVariant* reply) {
  const VariantPtr replies(g_variant_get_child_value(reply, 0));
  const VariantPtr errors(g_variant_get_child_value(reply, 1));
  const gsize replyCount = g_variant_n_children(replies.get());
  const gsize errorCount = g_variant_n_children(errors.get());
  if (replyCount > 1 || errorCount > 1) return std::nullopt;

  NotaryReply result;
  if (errorCount == 1) {
    const VariantPtr element(g_variant_get_child_value(errors.get(), 0));
    result.error = readError(element.get());
    if (!result.error) return std::nullopt;
  } else if (replyCount == 1) {
    const VariantPtr element(g_variant_get_child_value(replies.get(), 0));
    result.reply = dictionaryFromVariant(element.get());
    if (!result.reply) return std::nullopt;
    if (result.reply->empty()) result.reply.reset();
  }
  return result;
}

}  // namespace kvl::ipc
