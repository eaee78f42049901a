// The templates of the Qt binding's headers, used as a host uses them; see TemplateUses.cpp.
#include <local/qt.h>

namespace {

[[maybe_unused]] void useGuiThread(QObject& receiver) {
  kvl::qt::onGuiThread(QPointer(&receiver), [](QObject& /*self*/) {});
}

}  // namespace
