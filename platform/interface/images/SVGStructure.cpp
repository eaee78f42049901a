#include "platform/interface/images/SVGStructure.h"

#include "platform/interface/images/Limits.h"
#include "platform/interface/images/SVGDashes.h"
#include "platform/interface/images/SVGText.h"

#include <glib.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::images {
namespace {

std::string_view localName(std::string_view name) {
  const auto colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

// Attributes of editors' own vocabularies are not looked at by the renderer.
bool isRendered(std::string_view attribute) {
  return attribute.find(':') == std::string_view::npos || attribute.starts_with("xlink:") ||
         localName(attribute) == "href";
}

// Elements that draw other elements once more, wherever those stand.
bool drawsOthers(std::string_view element) {
  return element == "use" || element == "marker" || element == "mask" || element == "clipPath" ||
         element == "feImage" || element == "switch";
}

// Adds up what a document would cost while a parser goes through it.
class Costs {
 public:
  // False when the document is not to be drawn.
  bool begin(std::string_view element, const char** names, const char** values) {
    const auto name = localName(element);
    if (elements_ == 0 && name != "svg") return false;
    // The renderer would read the sheet without what stands in there.
    if (isWithin(&Element::inStyle)) return false;
    referring_ = referring_ || drawsOthers(name);
    effects_ += name.starts_with("fe") ? 1 : 0;
    std::size_t layers = 0;
    for (; *names != nullptr; ++names, ++values) {
      if (isRendered(*names) && !takeAttribute(*names, *values)) return false;
      layers += std::string_view(*names) == "style" ? layersInStyle(*values)
                                                    : std::size_t{makesLayer(*names, *values)};
    }
    dashes_.endOfElement();
    return name != "pattern" &&
           push({layers, name == "text" || isWithin(&Element::inText), name == "style"});
  }

  void end() {
    nested_ -= open_.back().layers;
    // Each sheet ends what it left open.
    if (open_.back().inStyle) styles_ += '}';
    open_.pop_back();
  }

  bool text(std::string_view text) {
    if (isWithin(&Element::inStyle)) styles_ += text;
    if (isWithin(&Element::inText)) glyphs_ += text.size();
    return glyphs_ <= kMaximumSVGGlyphs && styles_.size() <= kMaximumSVGText;
  }

  // The style sheets, once all of them are there: comments and the like may stand between the
  // pieces of a word. False when the document is not to be drawn.
  bool takeStyles() {
    styledLayers_ = layersInStyle(styles_) > 0;
    dashes_.take("style", styles_);
    dashes_.endOfElement();
    return !mayEmbedFile(styles_);
  }

  // Comments, declarations, instructions and sections of plain text.
  bool passthrough(std::string_view text) {
    if (text.starts_with("<?xml ")) return declaresUTF8(text);
    if (text.starts_with("<!DOCTYPE")) return text.find('[') == std::string_view::npos;
    if (text.starts_with("<?")) return !mayEmbedFile(text);
    return true;
  }

  [[nodiscard]] std::size_t layers() const {
    const auto all = total_ + (styledLayers_ ? elements_ : 0);
    // A mask takes two surfaces, and the drawing itself one.
    return 2 * (referring_ || styledLayers_ ? all : deepest_) + effects_ + 1;
  }

  [[nodiscard]] bool areModest() const { return elements_ > 0 && dashes_.areModest(); }

 private:
  struct Element {
    std::size_t layers;
    bool inText;
    bool inStyle;
  };

  [[nodiscard]] bool isWithin(bool Element::* kind) const {
    return !open_.empty() && open_.back().*kind;
  }

  bool takeAttribute(std::string_view name, std::string_view value) {
    dashes_.take(name, value);
    return value.size() <= kMaximumSVGText && !mayEmbedFile(value);
  }

  bool push(Element element) {
    open_.push_back(element);
    nested_ += element.layers;
    total_ += element.layers;
    deepest_ = std::max(deepest_, nested_);
    return ++elements_ <= kMaximumSVGElements && open_.size() <= kMaximumSVGDepth;
  }

  std::vector<Element> open_;  // what is not closed yet
  std::size_t nested_ = 0;
  std::size_t deepest_ = 0;
  std::size_t total_ = 0;
  std::size_t elements_ = 0;
  std::size_t effects_ = 0;
  std::string styles_;
  std::size_t glyphs_ = 0;
  DashCosts dashes_;
  bool referring_ = false;
  bool styledLayers_ = false;
};

void stopUnless(bool good, GError** error) {
  if (!good) g_set_error_literal(error, G_MARKUP_ERROR, G_MARKUP_ERROR_INVALID_CONTENT, "refused");
}

Costs& costsOf(gpointer data) {
  return *static_cast<Costs*>(data);
}

void onBegin(GMarkupParseContext* /*context*/, const char* element, const char** names,
             const char** values, gpointer data, GError** error) {
  stopUnless(costsOf(data).begin(element, names, values), error);
}

void onEnd(GMarkupParseContext* /*context*/, const char* /*element*/, gpointer data,
           GError** /*error*/) {
  costsOf(data).end();
}

void onText(GMarkupParseContext* /*context*/, const char* text, gsize size, gpointer data,
            GError** error) {
  stopUnless(costsOf(data).text({text, size}), error);
}

void onPassthrough(GMarkupParseContext* /*context*/, const char* text, gsize size, gpointer data,
                   GError** error) {
  stopUnless(costsOf(data).passthrough({text, size}), error);
}

struct ContextRelease {
  void operator()(GMarkupParseContext* context) const noexcept {
    g_markup_parse_context_free(context);
  }
};

Span withoutByteOrderMark(Span bytes) {
  const bool marked = bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF;
  return bytes.subspan(marked ? 3 : 0);
}

}  // namespace

// GLib's parser knows no entities but the predefined ones, so it ends at any that is declared.
std::optional<std::size_t> layersOfSVG(Span bytes) {
  if (bytes.size() > kMaximumSVGBytes) return {};
  constexpr GMarkupParser parser{onBegin, onEnd, onText, onPassthrough, nullptr};
  Costs costs;
  const std::unique_ptr<GMarkupParseContext, ContextRelease> context(
      g_markup_parse_context_new(&parser, G_MARKUP_TREAT_CDATA_AS_TEXT, &costs, nullptr));
  const auto text = withoutByteOrderMark(bytes);
  const bool whole =
      g_markup_parse_context_parse(context.get(), reinterpret_cast<const char*>(text.data()),
                                   static_cast<gssize>(text.size()), nullptr) &&
      g_markup_parse_context_end_parse(context.get(), nullptr);
  const bool drawn = whole && costs.takeStyles() && costs.areModest();
  return drawn ? std::optional(costs.layers()) : std::nullopt;
}

}  // namespace kvl::images
