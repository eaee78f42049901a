#include "platform/interface/pictures/Decoders.h"
#include "platform/interface/pictures/Pixels.h"

#include <poppler.h>

#include <utility>

namespace kvl::pictures {
namespace {

using DocumentPtr = ObjectPtr<PopplerDocument>;
using PagePtr = ObjectPtr<PopplerPage>;

class PDFPicture final : public Picture {
 public:
  PDFPicture(DocumentPtr document, PagePtr page, Size size, std::size_t length)
      : document_(std::move(document)), page_(std::move(page)), size_(size), length_(length) {}

  [[nodiscard]] Size size() const override { return size_; }
  // The objects of the page, its fonts and pictures are kept unpacked.
  [[nodiscard]] std::size_t cost() const override { return kCostOfEmpty + length_ * 4; }

  [[nodiscard]] bool draw(const Target& target) override {
    return drawByCairo(target, size_, [this](cairo_t* context) {
      poppler_page_render(page_.get(), context);
      return true;
    });
  }

 private:
  static constexpr std::size_t kCostOfEmpty = std::size_t{64} << 10;

  DocumentPtr document_;
  PagePtr page_;
  Size size_;
  std::size_t length_;
};

DocumentPtr openDocument(Span bytes) {
  GBytes* const shared = g_bytes_new_static(bytes.data(), bytes.size());
  DocumentPtr document(poppler_document_new_from_bytes(shared, nullptr, nullptr));
  g_bytes_unref(shared);
  return document;
}

}  // namespace

PicturePtr decodePDF(Span bytes) {
  auto document = openDocument(bytes);
  if (!document || poppler_document_get_n_pages(document.get()) < 1) return nullptr;
  PagePtr page(poppler_document_get_page(document.get(), 0));
  if (!page) return nullptr;
  Size size;
  poppler_page_get_size(page.get(), &size.width, &size.height);
  if (!hasArea(size)) return nullptr;
  return std::make_unique<PDFPicture>(std::move(document), std::move(page), size, bytes.size());
}

}  // namespace kvl::pictures
