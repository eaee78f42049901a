// What the notary may say, and what becomes of it.
#include "tests/ipc/NotaryBusFixture.h"

#include <gmock/gmock.h>

#include <vector>

namespace kvltest {
namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Error;
using kvl::Value;
using testing::ElementsAre;

class NotaryReplyTest : public NotaryBusFixture {
 protected:
  void SetUp() override { startNotary(); }

  [[nodiscard]] static std::shared_ptr<CallRecorder> answer(const std::string& body) {
    return callAndWait({{"reply", body}});
  }
};

TEST_F(NotaryReplyTest, RequestArrivesAsItWasSent) {
  const Dictionary request{{"csr", "-----BEGIN\n"},
                           {"yes", true},
                           {"count", -5},
                           {"share", 0.25},
                           {"bytes", kvl::Data(kvl::Bytes{0, 255})},
                           {"list", Array{"a", ""}},
                           {"nested", Dictionary{{"inner", Dictionary{{"x", 1}}}}}};
  const auto recorder = callAndWait(request, "/some/where");
  ASSERT_TRUE(recorder->reply().has_value());
  EXPECT_EQ((*recorder->reply())["request"], Value(request));
  EXPECT_EQ((*recorder->reply())["path"], Value(Array{"/some/where"}));
  EXPECT_THAT(recorder->events(), ElementsAre("reply"));
}

TEST_F(NotaryReplyTest, AbsentPathDiffersFromEmptyPath) {
  EXPECT_EQ((*callAndWait({}, std::nullopt)->reply())["path"], Value(Array{}));
  EXPECT_EQ((*callAndWait({}, "")->reply())["path"], Value(Array{""}));
}

TEST_F(NotaryReplyTest, EntriesOfAllTypesAreRead) {
  const auto recorder = answer(
      "([{'s': <'tä'>, 'b': <true>, 'x': <int64 -9>, 't': <uint64 9>, "
      "'T': <uint64 9223372036854775808>, 'd': <1.5>, 'as': <['a', 'b']>, 'none': <@as []>, "
      "'ay': <[byte 0x01, 0x00]>, 'noBytes': <@ay []>, 'a{sv}': <{'k': <'v'>}>}], "
      "@a(sxa{sv}) [])");
  const Dictionary expected{{"s", "tä"},
                            {"b", true},
                            {"x", -9},
                            {"t", 9},
                            {"T", 9223372036854775808.0},
                            {"d", 1.5},
                            {"as", Array{"a", "b"}},
                            {"none", Array{}},
                            {"ay", kvl::Data(kvl::Bytes{1, 0})},
                            {"noBytes", kvl::Data()},
                            {"a{sv}", Dictionary{{"k", "v"}}}};
  ASSERT_TRUE(recorder->reply().has_value());
  EXPECT_EQ(*recorder->reply(), expected) << recorder->reply()->description();
  EXPECT_FALSE(recorder->replyError().has_value());
}

TEST_F(NotaryReplyTest, ServicesOwnErrorComesWithAbsentReply) {
  const auto recorder = answer(
      "(@aa{sv} [], [('NSPOSIXErrorDomain', int64 2, {'NSFilePath': <'/x'>, "
      "'NSLocalizedFailureReason': <'Not running.'>})])");
  EXPECT_FALSE(recorder->reply().has_value());
  EXPECT_EQ(recorder->replyError(),
            Error(kvl::NSPOSIXErrorDomain, 2,
                  {{kvl::NSFilePathErrorKey, "/x"},
                   {kvl::NSLocalizedFailureReasonErrorKey, "Not running."}}));
}

TEST_F(NotaryReplyTest, ErrorWinsOverReply) {
  const auto recorder = answer("([{'url': <['https://a']>}], [('D', int64 7, @a{sv} {})])");
  EXPECT_FALSE(recorder->reply().has_value());
  EXPECT_EQ(recorder->replyError(), Error("D", 7));
}

TEST_F(NotaryReplyTest, ReplyWithoutEntriesIsAbsent) {
  for (const char* body : {"(@aa{sv} [], @a(sxa{sv}) [])", "([@a{sv} {}], @a(sxa{sv}) [])"}) {
    SCOPED_TRACE(body);
    const auto recorder = answer(body);
    EXPECT_THAT(recorder->events(), ElementsAre("reply"));
    EXPECT_FALSE(recorder->reply().has_value());
    EXPECT_FALSE(recorder->replyError().has_value());
  }
}

TEST_F(NotaryReplyTest, ReplyOfWrongShapeIsAnError) {
  const std::vector<std::string> bodies{
      "([{'a': <1.0>}, {'b': <1.0>}], @a(sxa{sv}) [])",
      "(@aa{sv} [], [('D', int64 1, @a{sv} {}), ('D', int64 2, @a{sv} {})])",
      "([{'a': <int32 1>}], @a(sxa{sv}) [])",
      "([{'a': <<'boxed twice'>>}], @a(sxa{sv}) [])",
      "([{'a': <[1.0]>}], @a(sxa{sv}) [])",
      "([{'a': <objectpath '/'>}], @a(sxa{sv}) [])",
      "([{'a': <{'b': <byte 0x01>}>}], @a(sxa{sv}) [])",
      "(@aa{sv} [], [('D', int64 1, {'a': <uint32 1>})])",
      "('another signature',)",
      "(@aa{sv} [],)",
      "(@aa{sv} [], @a(sia{sv}) [])",
  };
  for (const std::string& body : bodies) {
    SCOPED_TRACE(body);
    const auto recorder = answer(body);
    EXPECT_THAT(recorder->events(), ElementsAre("error"));
    expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4101);
  }
}

TEST_F(NotaryReplyTest, RequestThatTheWireCannotCarryIsNotSent) {
  Value deep = "bottom";
  for (int level = 0; level < 40; ++level) deep = Dictionary{{"d", deep}};
  const std::vector<Dictionary> requests{
      {{"k", nullptr}},         {{"k", kvl::Date(0)}}, {{"k", Array{"a", 1}}},
      {{"k", "\xff not text"}}, {{"k\xc3", "v"}},      {{"k", std::string_view("a\0b", 3)}},
      {{"k", Array{"\xff"}}},   {{"k", deep}},
  };
  for (const Dictionary& request : requests) {
    const auto recorder = callAndWait(request);
    EXPECT_THAT(recorder->events(), ElementsAre("error"));
    expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4101);
  }
  expectFailure(*callAndWait({}, "\xff"), kvl::NSCocoaErrorDomain, 4101);
  EXPECT_EQ(requestsSeen(), 1);
}

struct BusErrorRow {
  const char* name;
  std::string_view domain;
  std::int64_t code;
  bool interrupts;
};

TEST_F(NotaryReplyTest, BusErrorMeansThatTheChannelFailed) {
  const std::vector<BusErrorRow> rows{
      {"org.freedesktop.DBus.Error.NoReply", kvl::NSCocoaErrorDomain, 4097, true},
      {"org.freedesktop.DBus.Error.Disconnected", kvl::NSCocoaErrorDomain, 4097, true},
      {"org.freedesktop.DBus.Error.AccessDenied", kvl::NSCocoaErrorDomain, 4099, false},
      {"org.freedesktop.DBus.Error.LimitsExceeded", kvl::NSCocoaErrorDomain, 4099, false},
      {"org.freedesktop.DBus.Error.ServiceUnknown", kvl::NSCocoaErrorDomain, 4099, false},
      {"org.freedesktop.DBus.Error.UnknownMethod", kvl::NSCocoaErrorDomain, 4101, false},
      {"org.freedesktop.DBus.Error.Failed", kvl::NSCocoaErrorDomain, 4101, false},
      {"com.example.Error.OfItsOwn", kvl::NSCocoaErrorDomain, 4101, false},
      {"org.freedesktop.DBus.Error.TimedOut", kvl::NSPOSIXErrorDomain, 60, false},
      {"org.freedesktop.DBus.Error.Timeout", kvl::NSPOSIXErrorDomain, 60, false},
  };
  for (const BusErrorRow& row : rows) {
    SCOPED_TRACE(row.name);
    const auto recorder = callAndWait({{"error", row.name}});
    expectFailure(*recorder, row.domain, row.code);
    EXPECT_EQ(recorder->events().front() == "interruption", row.interrupts);
    const Value& text = recorder->channelError()->userInfo()[kvl::NSDebugDescriptionErrorKey];
    EXPECT_THAT(std::string(text.string().value_or("")), testing::HasSubstr("told to"));
  }
}

}  // namespace
}  // namespace kvltest
