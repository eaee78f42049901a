// The parts of the host that need no service.
#include "examples/qthost/DocumentTree.h"
#include "examples/qthost/FormField.h"
#include "examples/qthost/Host.h"
#include "examples/qthost/Outcome.h"
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/StateDot.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

#include <QPainter>

namespace {

using kvl::Value;

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

TEST(HostInboxTest, CallsOnceUntilTakenAndKeepsTheLatest) {
  int calls = 0;
  qthost::EventInbox inbox([&] { ++calls; });
  std::vector<std::shared_ptr<KVLEvent>> events;
  for (std::size_t i = 0; i < qthost::EventInbox::kMostKept + 5; ++i)
    events.push_back(std::make_shared<KVLEvent>("e", std::to_string(i), std::nullopt));
  inbox.add(events);
  inbox.add({events.front()});
  EXPECT_EQ(calls, 1);
  const auto taken = inbox.take();
  EXPECT_EQ(taken.size(), qthost::EventInbox::kMostKept);
  EXPECT_EQ(taken.back(), events.front());
  EXPECT_THAT(inbox.take(), testing::IsEmpty());
  inbox.add(events);
  EXPECT_EQ(calls, 2);
}

TEST(HostOutcomeTest, AStatusThatIsNoSuccessGoesBeforeTheErrorOfItsBody) {
  const auto response = std::make_shared<kvl::URLResponse>(
      kvl::URLResponse{*kvl::URL::parse("https://localhost/"), 404, {}, 11});
  const auto outcome = qthost::outcomeOf(response, kvl::Error("no document", 1));
  EXPECT_FALSE(outcome.isGood);
  EXPECT_EQ(outcome.text, "404 Not Found");
}

TEST(HostDocumentTreeTest, ALargeDocumentIsCut) {
  const kvltest::QtApplication application;
  qthost::DocumentTree tree;
  kvl::Array array;
  for (int i = 0; i < 2 * qthost::DocumentTree::kMostRows; ++i) array.append(i);
  tree.setDocument(array);
  EXPECT_EQ(tree.topLevelItemCount(), qthost::DocumentTree::kMostRows + 1);
  EXPECT_EQ(tree.topLevelItem(qthost::DocumentTree::kMostRows)->text(0), "…");
}

TEST(HostDocumentTreeTest, ADeepDocumentIsShown) {
  const kvltest::QtApplication application;
  qthost::DocumentTree tree;
  kvl::Value value(1);
  for (int i = 0; i < 1000; ++i) value = kvl::Array{value};
  tree.setDocument(value);
  EXPECT_EQ(tree.topLevelItem(0)->text(1), "1 element");
}

TEST(HostDocumentTreeTest, ABareValueIsOneRow) {
  const kvltest::QtApplication application;
  qthost::DocumentTree tree;
  tree.setDocument("text");
  EXPECT_EQ(tree.topLevelItem(0)->text(1), "text");
  tree.setDocument(true);
  ASSERT_EQ(tree.topLevelItemCount(), 1);
  EXPECT_EQ(tree.topLevelItem(0)->text(1), "true");
}

TEST(HostNoticeTest, AnErrorHasAColourOfItsOwnAndNothingElse) {
  const kvltest::QtApplication application;
  QWidget window;
  qthost::Notice notice(&window);
  notice.showError("wrong");
  EXPECT_NE(notice.palette().windowText(), window.palette().windowText());
  QPalette colors = window.palette();
  colors.setColor(QPalette::Window, Qt::yellow);
  window.setPalette(colors);
  EXPECT_EQ(notice.palette().color(QPalette::Window), QColor(Qt::yellow));
  notice.showOutcome("right");
  EXPECT_EQ(notice.palette().windowText(), window.palette().windowText());
}

TEST(HostStateTest, EachStateHasAShapeOfItsOwn) {
  const auto shapeOf = [](KVLSessionState state) {
    QImage image(16, 16, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    qthost::drawState(painter, image.rect(), state);
    return image.convertToFormat(QImage::Format_Alpha8);
  };
  QList<QImage> shapes;
  for (const auto state : {KVLSessionStateConnecting, KVLSessionStateEstablished,
                           KVLSessionStateDisconnected, KVLSessionStateRecovering}) {
    EXPECT_FALSE(shapes.contains(shapeOf(state))) << static_cast<int>(state);
    shapes.append(shapeOf(state));
  }
}

TEST(HostFieldTest, NumbersThatNoSpinBoxHoldsStayAsTheyAre) {
  const kvltest::QtApplication application;
  QWidget parent;
  const auto* field = qthost::FormField::make({{"name", "n"}, {"value", 12'345'678'901}}, &parent);
  QString fault;
  EXPECT_EQ((*field->input(fault))["value"].string(), "12345678901");
}

TEST(HostFieldTest, AFileThatIsNotChosenIsNotSent) {
  const kvltest::QtApplication application;
  QWidget parent;
  QString fault;
  EXPECT_FALSE(qthost::FormField::make({{"name", "n"}, {"type", "file"}}, &parent)->input(fault));
  EXPECT_TRUE(fault.isEmpty());
}

}  // namespace
