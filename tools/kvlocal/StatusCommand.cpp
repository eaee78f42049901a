#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Commands.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Output.h"

namespace kvlocal {
namespace {

std::string statusText(const Client& client) {
  std::string text = field("state", stateName(client.session().state()));
  if (const auto signature = client.session().signature()) text += signatureText(*signature);
  return text;
}

std::string statusJSON(const Client& client) {
  kvl::Dictionary value{{"state", stateName(client.session().state())}};
  if (const auto signature = client.session().signature())
    value.set("signature", signatureValue(*signature));
  if (const auto error = client.lastError()) value.set("error", errorValue(*error));
  return jsonText(value) + '\n';
}

ExitCode runStatus(const Context& context) {
  Client client(context);
  const ExitCode result = client.establish();
  if (result == ExitCode::interrupted) return result;
  if (result == ExitCode::notEstablished) complain(client.failureText());
  const ExitCode printed = print(context.settings.json ? statusJSON(client) : statusText(client));
  return printed == ExitCode::ok ? result : printed;
}

}  // namespace

Command statusCommand() {
  return {"status", "Get an identity from the notary and show it",
          [](CLI::App&) -> Runner { return runStatus; }};
}

}  // namespace kvlocal
