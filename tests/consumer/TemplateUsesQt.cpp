// The headers of the Qt binding, which have no templates so far; see TemplateUses.cpp.
#include <local/qt.h>
