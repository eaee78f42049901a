#include "platform/core/NoDestructor.h"
#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/PDFStructure.h"
#include "platform/interface/images/Picture.h"

#include <local/platform/Mutex.h>

#include <poppler.h>

#include <utility>

namespace kvl::images {
namespace {

using DocumentPtr = ObjectPtr<PopplerDocument>;
using PagePtr = ObjectPtr<PopplerPage>;

// Documents share fonts and settings, and what a page needs cannot be told before it is drawn: one
// at a time.
Mutex& rendering() {
  static NoDestructor<Mutex> mutex;
  return *mutex;
}

class PDFPicture final : public Picture {
 public:
  PDFPicture(DocumentPtr document, PagePtr page, Size size)
      : document_(std::move(document)), page_(std::move(page)), size_(size) {}

  ~PDFPicture() override {
    MutexLock lock(rendering());
    page_.reset();
    document_.reset();
  }

  [[nodiscard]] Size size() const override { return size_; }

  [[nodiscard]] bool draw(cairo_t* context) override {
    MutexLock lock(rendering());
    poppler_page_render(page_.get(), context);
    return true;
  }

 private:
  DocumentPtr document_;
  PagePtr page_;
  Size size_;
};

DocumentPtr openDocument(Span bytes) {
  GBytes* const shared = g_bytes_new_static(bytes.data(), bytes.size());
  DocumentPtr document(poppler_document_new_from_bytes(shared, nullptr, nullptr));
  g_bytes_unref(shared);
  return document;
}

}  // namespace

PicturePtr decodePDF(Span bytes) {
  if (!isModestPDF(bytes)) return nullptr;
  MutexLock lock(rendering());
  auto document = openDocument(bytes);
  if (!document || poppler_document_get_n_pages(document.get()) < 1) return nullptr;
  PagePtr page(poppler_document_get_page(document.get(), 0));
  if (!page) return nullptr;
  Size size;
  poppler_page_get_size(page.get(), &size.width, &size.height);
  if (!isDrawable(size.width) || !isDrawable(size.height)) return nullptr;
  return std::make_unique<PDFPicture>(std::move(document), std::move(page), size);
}

}  // namespace kvl::images
