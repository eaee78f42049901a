#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Commands.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Output.h"

namespace kvlocal {
namespace {

ExitCode runCSR(const Context& context) {
  const KVLNotary notary(notaryPath(context.settings));
  const auto request = notary.pemCertificateSigningRequest();
  if (!request) {
    complain("no signing request could be made; --verbose shows why");
    return ExitCode::noRequest;
  }
  if (!context.settings.json) return printLine(*request);
  return printLine(jsonText(kvl::Dictionary{{"certificateSigningRequest", *request}}));
}

}  // namespace

Command csrCommand() {
  return {"csr", "Show a certificate signing request such as the notary gets",
          [](CLI::App&) -> Runner { return runCSR; }};
}

}  // namespace kvlocal
