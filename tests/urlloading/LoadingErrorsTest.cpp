// Which code a failure gets from what is known of it.
#include "platform/urlloading/LoadingErrors.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <set>
#include <string>

namespace kvl::urlloading {
namespace {

std::int64_t codeOf(CURLcode code, std::optional<TLSFacts> tls = std::nullopt,
                    bool closing = false) {
  return classify({.code = code, .tls = tls, .closing = closing});
}

// A connection on which the server asked for a certificate.
TLSFacts asked(bool offered) {
  TLSFacts facts;
  facts.certificateRequested = true;
  facts.certificateOffered = offered;
  return facts;
}

TLSFacts refused(int verdict) {
  TLSFacts facts;
  facts.refusedVerdict = verdict;
  return facts;
}

TLSFacts connected() {
  TLSFacts facts;
  facts.handshakeDone = true;
  return facts;
}

TEST(LoadingErrorsTest, PlainCausesHaveTheirCodesWithAndWithoutTLS) {
  const std::pair<CURLcode, std::int64_t> rows[] = {
      {CURLE_URL_MALFORMAT, NSURLErrorBadURL},
      {CURLE_COULDNT_RESOLVE_HOST, NSURLErrorCannotFindHost},
      {CURLE_COULDNT_CONNECT, NSURLErrorCannotConnectToHost},
      {CURLE_OPERATION_TIMEDOUT, NSURLErrorTimedOut},
      {CURLE_UNSUPPORTED_PROTOCOL, NSURLErrorBadServerResponse},
      {CURLE_WEIRD_SERVER_REPLY, NSURLErrorBadServerResponse},
      {CURLE_BAD_CONTENT_ENCODING, NSURLErrorCannotDecodeContentData},
      {CURLE_OUT_OF_MEMORY, NSURLErrorUnknown},
      {CURLE_FAILED_INIT, NSURLErrorUnknown},
  };
  for (const auto& [code, expected] : rows) {
    EXPECT_EQ(codeOf(code), expected) << code;
    EXPECT_EQ(codeOf(code, TLSFacts{}), expected) << code;
    EXPECT_EQ(codeOf(code, asked(true)), expected) << code;
  }
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR), NSURLErrorNetworkConnectionLost);
}

TEST(LoadingErrorsTest, HandshakeThatNeverEndedIsNoSecureConnection) {
  EXPECT_EQ(codeOf(CURLE_SSL_CONNECT_ERROR, TLSFacts{}), NSURLErrorSecureConnectionFailed);
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, connected()), NSURLErrorNetworkConnectionLost);
}

TEST(LoadingErrorsTest, RefusedServerGetsItsVerdictsCode) {
  const std::pair<int, std::int64_t> rows[] = {
      {X509_V_ERR_CERT_HAS_EXPIRED, NSURLErrorServerCertificateHasBadDate},
      {X509_V_ERR_CERT_NOT_YET_VALID, NSURLErrorServerCertificateNotYetValid},
      {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, NSURLErrorServerCertificateHasUnknownRoot},
      {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, NSURLErrorServerCertificateHasUnknownRoot},
      {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, NSURLErrorServerCertificateHasUnknownRoot},
      {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, NSURLErrorServerCertificateHasUnknownRoot},
      {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, NSURLErrorServerCertificateHasUnknownRoot},
      {X509_V_ERR_HOSTNAME_MISMATCH, NSURLErrorServerCertificateUntrusted},
      {X509_V_ERR_CERT_SIGNATURE_FAILURE, NSURLErrorServerCertificateUntrusted},
      {X509_V_OK, NSURLErrorServerCertificateUntrusted},
  };
  for (const auto& [verdict, expected] : rows) {
    EXPECT_EQ(codeOf(CURLE_PEER_FAILED_VERIFICATION, refused(verdict)), expected) << verdict;
    // Before whatever libcurl makes of it.
    EXPECT_EQ(codeOf(CURLE_COULDNT_CONNECT, refused(verdict)), expected);
  }
}

TEST(LoadingErrorsTest, ChallengeThatNobodyDecidedSaysWhy) {
  const std::pair<Undecided, std::int64_t> rows[] = {
      {Undecided::timedOut, NSURLErrorTimedOut},
      {Undecided::closing, NSURLErrorNetworkConnectionLost},
      {Undecided::cancelled, NSURLErrorNetworkConnectionLost},
  };
  for (const auto& [reason, expected] : rows) {
    auto facts = asked(true);
    facts.undecided = reason;
    facts.refusedVerdict = X509_V_ERR_CERT_HAS_EXPIRED;
    EXPECT_EQ(codeOf(CURLE_SSL_CONNECT_ERROR, facts), expected);
  }
}

TEST(LoadingErrorsTest, ServerThatGoesNoFurtherAfterItAskedRefusesTheIdentity) {
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, asked(true)), NSURLErrorClientCertificateRejected);
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, asked(false)), NSURLErrorClientCertificateRequired);
  auto unasked = asked(true);
  unasked.certificateRequested = false;
  unasked.handshakeDone = true;
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, unasked), NSURLErrorNetworkConnectionLost);
  auto answered = asked(true);
  answered.handshakeDone = true;
  answered.answered = true;
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, answered), NSURLErrorNetworkConnectionLost);
}

TEST(LoadingErrorsTest, ServerThatWentOnRefusesItOnlyWhenItSaysSo) {
  auto facts = asked(true);
  facts.handshakeDone = true;
  facts.accepted = true;
  EXPECT_EQ(codeOf(CURLE_RECV_ERROR, facts), NSURLErrorNetworkConnectionLost);
  for (const int alert :
       {SSL_AD_BAD_CERTIFICATE, SSL_AD_UNSUPPORTED_CERTIFICATE, SSL_AD_CERTIFICATE_REVOKED,
        SSL_AD_CERTIFICATE_EXPIRED, SSL_AD_CERTIFICATE_UNKNOWN, SSL_AD_UNKNOWN_CA,
        SSL_AD_ACCESS_DENIED, TLS13_AD_CERTIFICATE_REQUIRED}) {
    facts.alert = alert;
    EXPECT_EQ(codeOf(CURLE_RECV_ERROR, facts), NSURLErrorClientCertificateRejected) << alert;
  }
  for (const int alert : {SSL_AD_CLOSE_NOTIFY, SSL_AD_HANDSHAKE_FAILURE, SSL_AD_INTERNAL_ERROR,
                          SSL_AD_DECODE_ERROR}) {
    facts.alert = alert;
    EXPECT_EQ(codeOf(CURLE_RECV_ERROR, facts), NSURLErrorNetworkConnectionLost) << alert;
  }
}

TEST(LoadingErrorsTest, ClosingSessionObjectBlamesNobodysCertificate) {
  const auto lost = NSURLErrorNetworkConnectionLost;
  const auto code = CURLE_SSL_CONNECT_ERROR;
  // Refused although no fault had been found, and without an identity that nobody gave any more.
  EXPECT_EQ(codeOf(code, refused(X509_V_OK), true), lost);
  EXPECT_EQ(codeOf(code, asked(false), true), lost);
  // All else keeps its cause.
  EXPECT_EQ(codeOf(code, TLSFacts{}, true), NSURLErrorSecureConnectionFailed);
  EXPECT_EQ(codeOf(code, asked(true), true), NSURLErrorClientCertificateRejected);
  auto expired = asked(false);
  expired.refusedVerdict = X509_V_ERR_CERT_HAS_EXPIRED;
  EXPECT_EQ(codeOf(code, expired, true), NSURLErrorServerCertificateHasBadDate);
  auto answered = asked(false);
  answered.answered = true;
  EXPECT_EQ(codeOf(code, answered, true), NSURLErrorSecureConnectionFailed);
}

TEST(LoadingErrorsTest, EveryCodeHasADescriptionOfItsOwn) {
  std::set<std::string> texts;
  for (const std::int64_t code : {NSURLErrorUnknown,
                                  NSURLErrorCancelled,
                                  NSURLErrorBadURL,
                                  NSURLErrorTimedOut,
                                  NSURLErrorUnsupportedURL,
                                  NSURLErrorCannotFindHost,
                                  NSURLErrorCannotConnectToHost,
                                  NSURLErrorNetworkConnectionLost,
                                  NSURLErrorHTTPTooManyRedirects,
                                  NSURLErrorBadServerResponse,
                                  NSURLErrorCannotDecodeContentData,
                                  NSURLErrorAppTransportSecurityRequiresSecureConnection,
                                  NSURLErrorDataLengthExceedsMaximum,
                                  NSURLErrorSecureConnectionFailed,
                                  NSURLErrorServerCertificateHasBadDate,
                                  NSURLErrorServerCertificateUntrusted,
                                  NSURLErrorServerCertificateHasUnknownRoot,
                                  NSURLErrorServerCertificateNotYetValid,
                                  NSURLErrorClientCertificateRejected,
                                  NSURLErrorClientCertificateRequired}) {
    const Error error = makeURLError(code, "https://a/");
    EXPECT_TRUE(error.is(NSURLErrorDomain, code));
    EXPECT_EQ(error.userInfo()[NSURLErrorFailingURLStringErrorKey].string(), "https://a/");
    EXPECT_FALSE(error.userInfo().contains(NSDebugDescriptionErrorKey));
    EXPECT_TRUE(texts.insert(error.localizedDescription()).second) << code;
  }
  EXPECT_EQ(makeURLError(-1, "", "words").userInfo()[NSDebugDescriptionErrorKey].string(), "words");
  EXPECT_EQ(makeURLError(NSURLErrorTimedOut, "").localizedDescription(), "The request timed out.");
}

TEST(LoadingErrorsTest, OtherErrorsNameTheAddressToo) {
  const Error invalid = makeInvalidRequestError("No.", "https://a/");
  EXPECT_EQ(invalid, Error(NSPOSIXErrorDomain, EINVAL,
                           {{NSLocalizedDescriptionKey, "No."},
                            {NSURLErrorFailingURLStringErrorKey, "https://a/"}}));
  EXPECT_EQ(
      makeSystemError(EMFILE, "https://a/"),
      Error(NSPOSIXErrorDomain, EMFILE, {{NSURLErrorFailingURLStringErrorKey, "https://a/"}}));
}

}  // namespace
}  // namespace kvl::urlloading
