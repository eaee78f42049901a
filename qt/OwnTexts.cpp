#include "qt/OwnTexts.h"

#include <local/platform/Translation.h>
#include <local/qt/Conversions.h>

#include <QCoreApplication>
#include <QTranslator>
#include <string_view>

namespace kvl::qt {
namespace {

class CatalogueTranslator final : public QTranslator {
 public:
  using QTranslator::QTranslator;

  [[nodiscard]] bool isEmpty() const override { return false; }
  [[nodiscard]] QString translate(const char* context, const char* english,
                                  const char* /*disambiguation*/, int /*count*/) const override {
    if (!std::string_view(context).starts_with("kvl::qt::")) return {};
    const std::string text = translated(english);
    return text == english ? QString() : qString(text);
  }
};

}  // namespace

void translateOwnTexts() {
  QCoreApplication::installTranslator(new CatalogueTranslator(qApp));
}

}  // namespace kvl::qt
