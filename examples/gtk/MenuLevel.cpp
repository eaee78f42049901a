#include "examples/gtk/MenuLevel.h"

#include <algorithm>
#include <utility>

namespace gtkhost {

using Items = std::vector<std::shared_ptr<kvl::MenuItem>>;

struct MenuLevel::Row {
  std::shared_ptr<kvl::MenuItem> item;
  std::unique_ptr<RowAction> action;
  RowLook look;
  std::unique_ptr<MenuLevel> submenu;
  kvl::Observation observation;
};

// What a title or a divider begins; the first section may have neither.
struct MenuLevel::Section {
  std::shared_ptr<kvl::MenuItem> head;
  std::string label;
  Owned<GMenu> model;
  std::vector<Row> rows;
  kvl::Observation observation;
};

struct MenuLevel::Wanted {
  std::shared_ptr<kvl::MenuItem> head;
  Items items;
};

namespace {

// Makes `shown` a list of what is `wanted`: what is the same at the beginning and at the end stays,
// what lies between is replaced.
template <class Shown, class Wanted, class Same, class Remove, class Insert>
void replaceMiddle(const std::vector<Shown>& shown, const std::vector<Wanted>& wanted, Same same,
                   Remove remove, Insert insert) {
  const std::size_t least = std::min(shown.size(), wanted.size());
  std::size_t begin = 0;
  while (begin < least && same(shown[begin], wanted[begin])) ++begin;
  std::size_t end = 0;
  while (end < least - begin &&
         same(shown[shown.size() - 1 - end], wanted[wanted.size() - 1 - end]))
    ++end;
  for (std::size_t i = shown.size() - end; i-- > begin;) remove(i);
  for (std::size_t i = begin; i + end < wanted.size(); ++i) insert(i);
}

std::string labelOfSection(const std::shared_ptr<kvl::MenuItem>& head) {
  return head ? labelOf(head->shownTitle()) : std::string();
}

void showSection(GMenu* menu, int position, const std::string& label, GMenu* section) {
  const char* shown = label.empty() ? nullptr : label.c_str();
  g_menu_insert_section(menu, position, shown, G_MENU_MODEL(section));
}

}  // namespace

MenuLevel::MenuLevel(std::shared_ptr<kvl::Menu> menu, MenuScene& scene, int depth)
    : menu_(std::move(menu)),
      scene_(scene),
      depth_(depth),
      model_(g_menu_new()),
      observation_(menu_->observe([&scene] { scene.changed(); })) {
  update();
}

MenuLevel::~MenuLevel() {
  g_menu_remove_all(model_.get());
  for (const Section& section : sections_) g_menu_remove_all(section.model.get());
}

std::vector<MenuLevel::Wanted> MenuLevel::sectionsOf(const kvl::Menu& menu) {
  std::vector<Wanted> sections(1);
  for (const auto& item : menu.items()) {
    if (item->kind() == kvl::MenuItem::Kind::item)
      sections.back().items.push_back(item);
    else
      sections.push_back({item, {}});
  }
  if (sections.front().items.empty()) sections.erase(sections.begin());
  return sections;
}

void MenuLevel::update() {
  const auto wanted = sectionsOf(*menu_);
  replaceMiddle(
      sections_, wanted,
      [](const Section& shown, const Wanted& next) { return shown.head == next.head; },
      [this](std::size_t i) {
        g_menu_remove(model_.get(), static_cast<int>(i));
        sections_.erase(sections_.begin() + static_cast<std::ptrdiff_t>(i));
      },
      [&](std::size_t i) {
        sections_.insert(sections_.begin() + static_cast<std::ptrdiff_t>(i),
                         makeSection(wanted[i]));
        const Section& section = sections_[i];
        showSection(model_.get(), static_cast<int>(i), section.label, section.model.get());
      });
  for (std::size_t i = 0; i < wanted.size(); ++i)
    updateSection(sections_[i], wanted[i], static_cast<int>(i));
}

MenuLevel::Section MenuLevel::makeSection(const Wanted& wanted) const {
  kvl::Observation observation;
  if (wanted.head) observation = wanted.head->observe([&scene = scene_] { scene.changed(); });
  return {wanted.head,
          labelOfSection(wanted.head),
          Owned<GMenu>(g_menu_new()),
          {},
          std::move(observation)};
}

void MenuLevel::updateSection(Section& section, const Wanted& wanted, int position) const {
  const std::string label = labelOfSection(wanted.head);
  if (label != section.label) {
    section.label = label;
    g_menu_remove(model_.get(), position);
    showSection(model_.get(), position, label, section.model.get());
  }
  GMenu* model = section.model.get();
  auto& rows = section.rows;
  replaceMiddle(
      rows, wanted.items,
      [](const Row& shown, const std::shared_ptr<kvl::MenuItem>& next) {
        return shown.item == next;
      },
      [&](std::size_t i) {
        g_menu_remove(model, static_cast<int>(i));
        rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(i));
      },
      [&](std::size_t i) {
        rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(i), makeRow(wanted.items[i]));
        show(rows[i], model, static_cast<int>(i));
      });
  for (std::size_t i = 0; i < rows.size(); ++i) updateRow(rows[i], model, static_cast<int>(i));
}

MenuLevel::Row MenuLevel::makeRow(const std::shared_ptr<kvl::MenuItem>& item) const {
  const std::string name = "item-" + std::to_string(++scene_.lastNumber);
  Row row;
  row.item = item;
  row.observation = item->observe([&scene = scene_] { scene.changed(); });
  row.action = std::make_unique<RowAction>(item, name, scene_.actions.get());
  row.look = lookOf(*item);
  const bool isShown = row.look.submenu && depth_ < kDeepest;
  if (isShown) row.submenu = std::make_unique<MenuLevel>(row.look.submenu, scene_, depth_ + 1);
  return row;
}

// GLib's model copies what it is told of an item, so a row that looks otherwise is another row.
void MenuLevel::updateRow(Row& row, GMenu* model, int position) const {
  row.action->update();
  const RowLook look = lookOf(*row.item);
  if (look == row.look) {
    if (row.submenu) row.submenu->update();
    return;
  }
  const bool isOtherMenu = look.submenu != row.look.submenu;
  row.look = look;
  g_menu_remove(model, position);
  if (isOtherMenu) {
    const bool isShown = look.submenu && depth_ < kDeepest;
    row.submenu = isShown ? std::make_unique<MenuLevel>(look.submenu, scene_, depth_ + 1) : nullptr;
  } else if (row.submenu) {
    row.submenu->update();
  }
  show(row, model, position);
}

void MenuLevel::show(const Row& row, GMenu* model, int position) const {
  const std::string action = scene_.group + "." + row.action->name();
  const Owned<GMenuItem> shown(g_menu_item_new(row.look.label.c_str(), nullptr));
  if (row.submenu)
    g_menu_item_set_submenu(shown.get(), G_MENU_MODEL(row.submenu->model()));
  else
    g_menu_item_set_detailed_action(shown.get(), action.c_str());
  if (!row.look.keys.empty())
    g_menu_item_set_attribute(shown.get(), "accel", "s", row.look.keys.c_str());
  g_menu_insert_item(model, position, shown.get());
}

void MenuLevel::eachKey(
    const std::function<void(const std::string&, const std::string&)>& see) const {
  for (const Section& section : sections_) {
    for (const Row& row : section.rows) {
      if (row.submenu)
        row.submenu->eachKey(see);
      else if (!row.look.keys.empty())
        see(scene_.group + "." + row.action->name(), row.look.keys);
    }
  }
}

}  // namespace gtkhost
