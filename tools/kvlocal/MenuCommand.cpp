// The command menu, which draws a menu of the service or submits the form of one of its items.

#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Exchange.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/MenuText.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingMenus.h>
#include <local/KVLEncodingSession.h>
#include <local/platform/Text.h>

namespace kvlocal {
namespace {

using Document = std::optional<kvl::Value>;

constexpr std::string_view kMenuKey = "menu";

struct MenuOptions {
  std::string path;
  std::optional<std::string> identifier;
  MenuLook look;
  bool tellsProgress = false;
};

std::optional<kvl::Array> descriptionsIn(const Document& document) {
  if (!document) return std::nullopt;
  if (const auto dictionary = document->dictionary()) return (*dictionary)[kMenuKey].array();
  return document->array();
}

kvl::Error noMenuError() {
  return {kvl::NSURLErrorDomain,
          kvl::NSURLErrorCannotDecodeContentData,
          {{kvl::NSLocalizedDescriptionKey, translatable("The answer holds no menu.")}}};
}

ExitCode show(const kvl::Menu& menu, const kvl::URLResponse& response, MenuLook look, bool json) {
  if (!json) return print(menuText(menu, look));
  kvl::Dictionary value = headValue(response);
  value.set(kMenuKey, menuValue(menu));
  return printLine(kvl::jsonText(value));
}

// Why the item cannot be activated here, as a pattern for its name; empty when it can.
std::string_view faultOf(const kvl::MenuItem& item) {
  if (!item.isEnabled()) return translatable("the item %@ is disabled");
  const auto action =
      KVLEncoding::stringFromDictionary(item.representedObject().dictionary(), "action");
  const bool isForBrowser = action && action->text().starts_with("https://");
  return isForBrowser ? translatable("the item %@ would be opened in a browser") : "";
}

// An item without a form, disabled or just there for its sub-menu, has no identifier. The one of
// its description is what the user may have meant.
std::string_view faultOf(const std::string& identifier, const std::shared_ptr<kvl::MenuItem>& item,
                         const kvl::Array& descriptions) {
  if (item) return faultOf(*item);
  const bool hasForm = KVLEncoding::menuFormWithIdentifier(
                           identifier, kvl::Dictionary{{kMenuKey, descriptions}}, kvl::Dictionary())
                           .has_value();
  return hasForm ? translatable("the item %@ is not in the menu")
                 : translatable("the item %@ has no form, so it cannot be activated");
}

class MenuRun {
 public:
  MenuRun(const Context& context, const MenuOptions& options)
      : context_(context), options_(options), client_(context) {}

  ExitCode run() {
    const ExitCode established = establish(client_);
    if (established != ExitCode::ok) return established;
    const ExitCode fetched = fetch();
    if (fetched != ExitCode::ok) return fetched;
    const bool json = context_.settings.json;
    if (document_.error) return reportNoDocument(*document_.error, document_.response, json);
    const auto descriptions = descriptionsIn(document_.content);
    if (!descriptions) return reportNoMenu();
    build(*descriptions);
    if (menu_.items().empty() && !descriptions->empty()) return reportNoMenu();
    if (options_.identifier) return activate(*options_.identifier, *descriptions);
    return withStatus(show(menu_, *document_.response, options_.look, json), *document_.response);
  }

 private:
  ExitCode fetch() {
    const Mailbox<Document> mailbox(context_);
    const Exchange exchange{.send =
                                [&](KVLSession& session) {
                                  return KVLEncoding::jsonFromSession(
                                             session, KVLEncoding::RelativePath(options_.path),
                                             mailbox.handler(), onOtherThread())
                                      .task();
                                },
                            .tellsProgress = options_.tellsProgress};
    return mailbox.collect(context_, client_, exchange, document_);
  }

  [[nodiscard]] ExitCode reportNoMenu() const {
    return reportUnusable(tr("the answer holds no menu"), noMenuError(), document_.response,
                          context_.settings.json);
  }

  void build(const kvl::Array& descriptions) {
    const kvl::MenuAction submit([this](const std::shared_ptr<kvl::MenuItem>& item) {
      KVLEncoding::submitForm(item->representedObject().dictionary(), std::nullopt,
                              KVLEncoding::RelativePath(options_.path), client_.session(),
                              mailbox_.handler());
    });
    KVLEncoding::addMenuItems(descriptions, menu_, nullptr, submit, {});
  }

  ExitCode activate(const std::string& identifier, const kvl::Array& descriptions) {
    const auto item = itemWithIdentifier(menu_, identifier);
    if (const auto fault = faultOf(identifier, item, descriptions); !fault.empty()) {
      return fail(context_.settings.json, ExitCode::noItem, tr(fault, kvl::jsonText(identifier)));
    }
    const Exchange exchange{.send =
                                [&](KVLSession&) {
                                  item->activate();
                                  return Exchange::Task();
                                },
                            .tellsProgress = options_.tellsProgress};
    Answer<Body> answer;
    const ExitCode result = mailbox_.collect(context_, client_, exchange, answer);
    return result == ExitCode::ok ? reportBody(answer, {.json = context_.settings.json}) : result;
  }

  const Context& context_;
  const MenuOptions& options_;
  Client client_;
  const Mailbox<Body> mailbox_{context_};
  Answer<Document> document_;
  kvl::Menu menu_;
};

ExitCode runMenu(const Context& context, const MenuOptions& options) {
  if (options.identifier && options.look.showsIdentifiers)
    return fail(context.settings.json, ExitCode::usage,
                tr("--activate draws no menu, so there is nothing for --ids to show; give one of "
                   "them"));
  return MenuRun(context, options).run();
}

Runner prepareMenu(CLI::App& parser) {
  const auto options = std::make_shared<MenuOptions>();
  parser.add_option("PATH", options->path, tr("URL, relative to the service's or absolute"))
      ->required();
  parser
      .add_option("--activate", options->identifier, tr("Submit the form of the item of that name"))
      ->type_name("ID");
  parser.add_flag("--ids", options->look.showsIdentifiers, tr("Show the items' identifiers"));
  declareProgress(parser, options->tellsProgress);
  return [options](const Context& context) { return runMenu(context, *options); };
}

}  // namespace

Command menuCommand() {
  return {"menu", translatable("Fetch a menu and draw it, or choose one of its items"),
          prepareMenu};
}

}  // namespace kvlocal
