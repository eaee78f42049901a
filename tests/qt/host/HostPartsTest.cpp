// The parts of the host that need no service.
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/StateDot.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

#include <QPainter>

namespace {

using kvl::Value;
using kvl::qt::SessionObject;

std::shared_ptr<kvl::MenuItem> itemWithSubmenu(const char* title) {
  auto item = kvl::MenuItem::itemWithTitle(title);
  item->setSubmenu(std::make_shared<kvl::Menu>());
  return item;
}

std::vector<QString> titlesOf(const std::shared_ptr<kvl::Menu>& menu) {
  std::vector<QString> titles;
  for (const auto& entry : qthost::barMenus(menu, "w")) titles.push_back(entry.title);
  return titles;
}

TEST(HostBarMenusTest, EachSubmenuIsAMenuOfTheBarWithAMnemonicOfItsOwn) {
  const auto menu = std::make_shared<kvl::Menu>();
  for (const char* title : {"Work", "Only", "a&b", "9"}) menu->addItem(itemWithSubmenu(title));
  EXPECT_THAT(titlesOf(menu), testing::ElementsAre("W&ork", "O&nly", "&a&&b", "9"));
}

TEST(HostBarMenusTest, ItemsWithoutSubmenusAreInOneMenu) {
  const auto menu = std::make_shared<kvl::Menu>();
  menu->addItem(itemWithSubmenu("Open"));
  menu->addItem(kvl::MenuItem::itemWithTitle("Print"));
  EXPECT_THAT(titlesOf(menu), testing::ElementsAre("&Service"));
  EXPECT_THAT(titlesOf(std::make_shared<kvl::Menu>()), testing::IsEmpty());
}

TEST(HostEllipsesTest, ItemsWhoseFormHasInputsGetOne) {
  const kvl::Dictionary form{{"id", "a"}, {"inputs", kvl::Array{kvl::Dictionary{{"name", "n"}}}}};
  const kvl::Dictionary item{{"text", "Ask"}, {"form", form}};
  const auto result = qthost::withEllipses(
      {item, kvl::Dictionary{{"text", "Act"}, {"form", kvl::Dictionary()}},
       kvl::Dictionary{{"text", "More"}, {"subitems", kvl::Array{Value(item)}}}, "no item"});
  EXPECT_EQ((*result[0].dictionary())["text"].string(), "Ask…");
  EXPECT_EQ((*result[1].dictionary())["text"].string(), "Act");
  const auto inner = (*result[2].dictionary())["subitems"].array();
  EXPECT_EQ((*(*inner)[0].dictionary())["text"].string(), "Ask…");
  EXPECT_EQ(result[3].string(), "no item");
}

TEST(HostEllipsesTest, WhatABrowserOpensAsksForNothing) {
  const kvl::Dictionary form{{"action", "https://localhost/"},
                             {"inputs", kvl::Array{kvl::Dictionary{{"name", "n"}}}}};
  const auto result =
      qthost::withEllipses(kvl::Array{kvl::Dictionary{{"text", "Web"}, {"form", form}}});
  EXPECT_EQ((*result[0].dictionary())["text"].string(), "Web");
  EXPECT_FALSE(qthost::asks(form));
  EXPECT_FALSE(qthost::asks({}));
}

TEST(HostStateTest, EachStateHasAShapeOfItsOwn) {
  const auto shapeOf = [](SessionObject::State state) {
    QImage image(16, 16, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    qthost::drawState(painter, image.rect(), state);
    return image.convertToFormat(QImage::Format_Alpha8);
  };
  QList<QImage> shapes;
  for (const auto state : {SessionObject::Connecting, SessionObject::Established,
                           SessionObject::Disconnected, SessionObject::Recovering}) {
    EXPECT_FALSE(shapes.contains(shapeOf(state))) << static_cast<int>(state);
    shapes.append(shapeOf(state));
  }
  EXPECT_EQ(shapeOf(SessionObject::Ended), shapeOf(SessionObject::Disconnected));
}

}  // namespace
