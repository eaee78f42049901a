#include <local/qt/PageRelay.h>

#include <QWebEngineUrlScheme>

int main() {
  kvl::qt::PageRelay::registerScheme();
  return QWebEngineUrlScheme::schemeByName("kvlocal").name() == "kvlocal" ? 0 : 1;
}
