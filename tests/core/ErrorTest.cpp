#include <local/platform/Error.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace {

using kvl::Error;

TEST(ErrorTest, KeepsDomainCodeAndUserInformation) {
  const Error error(kvl::NSURLErrorDomain, -1, {{"a", 1}});
  EXPECT_EQ(error.domain(), "NSURLErrorDomain");
  EXPECT_EQ(error.code(), -1);
  EXPECT_EQ(error.userInfo()["a"].integer(), 1);
  EXPECT_TRUE(error.is(kvl::NSURLErrorDomain, -1));
  EXPECT_FALSE(error.is(kvl::NSCocoaErrorDomain, -1));
  EXPECT_FALSE(error.is(kvl::NSURLErrorDomain, -2));
}

TEST(ErrorTest, KeepsCodesOf64Bits) {
  EXPECT_EQ(Error("d", INT64_MIN).code(), INT64_MIN);
  EXPECT_EQ(Error("d", INT64_MAX).code(), INT64_MAX);
}

TEST(ErrorTest, FailureReasonComesFromTheUserInformationFirst) {
  const Error error(kvl::NSPOSIXErrorDomain, ENOENT,
                    {{kvl::NSLocalizedFailureReasonErrorKey, "because"}});
  EXPECT_EQ(error.localizedFailureReason(), "because");
}

TEST(ErrorTest, FailureReasonOfThePOSIXDomainIsTheSystemsText) {
  for (const int code : {EPERM, ENOENT, EACCES, ECONNREFUSED}) {
    EXPECT_EQ(Error(kvl::NSPOSIXErrorDomain, code).localizedFailureReason(), strerror(code));
  }
}

TEST(ErrorTest, FailureReasonOfTheTimeOutCodeIsATimeOutsText) {
  EXPECT_EQ(Error(kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode).localizedFailureReason(),
            strerror(ETIMEDOUT));
}

TEST(ErrorTest, FailureReasonOfCodesWithoutASystemTextNamesTheCode) {
  EXPECT_EQ(Error(kvl::NSPOSIXErrorDomain, -1002).localizedFailureReason(), "Unknown error -1002");
  EXPECT_EQ(Error(kvl::NSPOSIXErrorDomain, INT64_MAX).localizedFailureReason(),
            "Unknown error 9223372036854775807");
}

TEST(ErrorTest, StatusesOfSecurityServicesAreToldInWords) {
  for (const auto code :
       {kvl::fnfErr, kvl::errSecParam, kvl::errSecNotAvailable, kvl::errSecDuplicateItem,
        kvl::errSecItemNotFound, kvl::errSecDataTooLarge, kvl::errSecInteractionNotAllowed,
        kvl::errSecDecode, kvl::errSecUnknownFormat, kvl::errSecInternalComponent,
        kvl::errSecInvalidKeyRef}) {
    const std::string number = std::to_string(code);
    for (const auto domain : {kvl::NSPOSIXErrorDomain, kvl::NSOSStatusErrorDomain})
      EXPECT_EQ(Error(domain, code).localizedDescription().find(number), std::string::npos) << code;
  }
  EXPECT_EQ(Error(kvl::NSPOSIXErrorDomain, kvl::errSecItemNotFound).localizedFailureReason(),
            "The key store does not hold this item.");
  EXPECT_EQ(Error(kvl::NSOSStatusErrorDomain, kvl::errSecItemNotFound).localizedFailureReason(),
            std::nullopt);
}

TEST(ErrorTest, OtherDomainsHaveNoFailureReasonOfTheirOwn) {
  EXPECT_EQ(Error(kvl::NSURLErrorDomain, -1).localizedFailureReason(), std::nullopt);
}

TEST(ErrorTest, DescribesItselfInOneLine) {
  EXPECT_EQ(Error(kvl::NSCocoaErrorDomain, 4097).description(),
            "Error Domain=NSCocoaErrorDomain Code=4097 \"The operation couldn't be completed. "
            "(NSCocoaErrorDomain error 4097.)\"");
  EXPECT_EQ(Error("d", 1, {{kvl::NSLocalizedDescriptionKey, "Bad thing."}}).description(),
            "Error Domain=d Code=1 \"Bad thing.\" UserInfo={NSLocalizedDescription = \"Bad "
            "thing.\"}");
}

TEST(ErrorTest, EqualsByContent) {
  EXPECT_EQ(Error("d", 1, {{"k", "v"}}), Error("d", 1, {{"k", "v"}}));
  EXPECT_FALSE(Error("d", 1) == Error("d", 2));
  EXPECT_FALSE(Error("d", 1) == Error("e", 1));
  EXPECT_FALSE(Error("d", 1, {{"k", "v"}}) == Error("d", 1));
}

TEST(ErrorTest, StoringIntoNoSlotDoesNothing) {
  std::optional<Error> slot;
  kvl::storeError(nullptr, Error("d", 1));
  kvl::storeError(&slot, Error("d", 2));
  EXPECT_EQ(slot->code(), 2);
}

}  // namespace
