#include "platform/core/NoDestructor.h"
#include "platform/interface/desktop/OpenOnDesktop.h"

#include <local/platform/Atomic.h>
#include <local/platform/URL.h>
#include <local/platform/Workspace.h>

#include <string>
#include <utility>

namespace kvl {
namespace {

// Threads may still use them while the process exits.
Atomic<URLOpener>& presentOpener() {
  static NoDestructor<Atomic<URLOpener>> opener;
  return *opener;
}
Atomic<ErrorPresenter>& presentPresenter() {
  static NoDestructor<Atomic<ErrorPresenter>> presenter;
  return *presenter;
}

}  // namespace

URLOpener setURLOpener(URLOpener opener) {
  return presentOpener().exchange(std::move(opener));
}

bool openURL(std::string_view url) {
  if (!URL::parse(url)) return false;
  const auto opener = presentOpener().get();
  return opener ? opener(url) : interface::openOnDesktop(std::string(url));
}

ErrorPresenter setErrorPresenter(ErrorPresenter presenter) {
  return presentPresenter().exchange(std::move(presenter));
}

void presentError(const Error& error) {
  if (const auto presenter = presentPresenter().get()) presenter(error);
}

}  // namespace kvl
