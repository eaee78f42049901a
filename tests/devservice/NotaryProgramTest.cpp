#include "tests/devservice/MadeRequest.h"
#include "tests/devservice/ProgramFixture.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

namespace kvltest {
namespace {

using kvl::Array;
using kvl::Error;
using kvl::Value;
using testing::HasSubstr;
using testing::Not;

using NotaryProgramTest = ProgramFixture;

const std::vector<std::string> kWithURL{"--url", "https://127.0.0.1:1/"};

std::vector<std::string> withURL(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), kWithURL.begin(), kWithURL.end());
  return arguments;
}

TEST_F(NotaryProgramTest, CertificateChainsToTheAnchor) {
  startNotary(kWithURL);
  obtainIdentity();
  const std::string directory = bus_.directory();
  const CommandResult verified = runCommand("openssl verify -purpose sslclient -CAfile " +
                                            directory + "/anchor.pem " + directory + "/client.pem");
  EXPECT_EQ(verified.status, 0) << verified.output;
  const CommandResult subject =
      runCommand("openssl x509 -noout -subject -in " + directory + "/client.pem");
  EXPECT_THAT(subject.output, HasSubstr("kvlocal client (/a/host)"));
}

TEST_F(NotaryProgramTest, HandsOutTheURLsThatItWasGiven) {
  startNotary({"--url", "http://a/", "--url", "https://b/"});
  EXPECT_EQ(replyOf(*notarise())["url"], Value(Array{"http://a/", "https://b/"}));
}

TEST_F(NotaryProgramTest, HelpAndMistakesAreText) {
  for (const std::string arguments : {" --help", " --fault dance", " --dance"}) {
    const CommandResult result = runCommand(KVL_DEVNOTARY + arguments);
    EXPECT_THAT(result.output, HasSubstr("--help"));
    EXPECT_TRUE(std::ranges::all_of(result.output, [](unsigned char byte) {
      return byte == '\n' || (byte >= ' ' && byte != 0x7f);
    })) << result.output;
  }
  EXPECT_THAT(runCommand(KVL_DEVNOTARY " --help").output, HasSubstr("bad-anchor"));
}

TEST_F(NotaryProgramTest, HelpThatCannotBeWrittenIsAFailure) {
  for (const std::string program : {KVL_DEVNOTARY, KVL_DEVSERVICE})
    EXPECT_NE(runCommand(program + " --help >/dev/full").status, 0) << program;
}

TEST_F(NotaryProgramTest, WhatIsWrongIsShownWithoutSteeringTheTerminal) {
  EXPECT_THAT(runCommand(KVL_DEVNOTARY " \"$(printf 'a\\033[2J\\342\\200\\256')\"").output,
              HasSubstr(R"(a\x1b[2J\u{202e})"));
}

TEST_F(NotaryProgramTest, WithoutAServiceItSaysSo) {
  startNotary();
  const auto recorder = notarise();
  EXPECT_FALSE(recorder->reply().has_value());
  EXPECT_EQ(recorder->replyError(),
            Error(kvl::NSPOSIXErrorDomain, ENOENT,
                  {{kvl::NSFilePathErrorKey, (state() / "service.url").string()},
                   {kvl::NSLocalizedFailureReasonErrorKey, "The local service is not running."}}));
}

TEST_F(NotaryProgramTest, WrongRequestIsRefusedWithItsReason) {
  startNotary(kWithURL);
  const auto recorder = notarise(std::nullopt, "rubbish");
  ASSERT_TRUE(recorder->replyError().has_value());
  EXPECT_TRUE(recorder->replyError()->is(kvl::NSPOSIXErrorDomain, EINVAL));
  EXPECT_EQ(recorder->replyError()->localizedFailureReason(),
            "The request is not one PEM block labelled CERTIFICATE REQUEST.");
}

TEST_F(NotaryProgramTest, MinimalRequestGetsNoCertificate) {
  startNotary(kWithURL);
  const auto recorder = call(std::nullopt, {});
  ASSERT_TRUE(recorder->reply().has_value());
  EXPECT_TRUE(recorder->reply()->contains("anchor"));
  EXPECT_FALSE(recorder->reply()->contains("certificate"));
}

TEST_F(NotaryProgramTest, RestartKeepsTheAuthorityUnlessToldOtherwise) {
  startNotary(kWithURL);
  const Value first = replyOf(*notarise())["anchor"];
  notary_.kill();
  startNotary(kWithURL);
  EXPECT_EQ(replyOf(*notarise())["anchor"], first);
  notary_.kill();
  startNotary(withURL({"--new-ca"}));
  EXPECT_NE(replyOf(*notarise())["anchor"], first);
}

TEST_F(NotaryProgramTest, LogsRequestsAndNoSecrets) {
  startNotary(kWithURL);
  obtainIdentity();
  const std::string log = readFile(bus_.directory() / "notary.log");
  EXPECT_THAT(log, HasSubstr("request, path \"/a/host\", with a signing request"));
  EXPECT_THAT(log, Not(HasSubstr("PRIVATE KEY")));
}

TEST_F(NotaryProgramTest, FaultsOfTheChannel) {
  startNotary(withURL({"--fault", "rubbish"}));
  EXPECT_EQ(notarise()->channelError()->code(), 4101);
  notary_.kill();
  startNotary(withURL({"--fault", "exit"}));
  EXPECT_EQ(notarise()->channelError()->code(), 4097);
}

TEST_F(NotaryProgramTest, FaultsOfTheAnswer) {
  startNotary(withURL({"--fault", "error"}));
  EXPECT_TRUE(notarise()->replyError()->is(kvl::NSPOSIXErrorDomain, EIO));
  notary_.kill();
  startNotary(withURL({"--fault", "empty"}));
  EXPECT_FALSE(notarise()->reply().has_value());
  notary_.kill();
  startNotary(withURL({"--fault", "no-url"}));
  EXPECT_FALSE(replyOf(*notarise()).contains("url"));
  notary_.kill();
  startNotary(withURL({"--fault", "no-certificate"}));
  EXPECT_FALSE(replyOf(*notarise()).contains("certificate"));
}

TEST_F(NotaryProgramTest, UndecodableCertificates) {
  for (const std::string entry : {"anchor", "certificate"}) {
    startNotary(withURL({"--fault", "bad-" + entry}));
    const auto file = bus_.directory() / "bad.pem";
    const auto recorder = notarise();
    std::ofstream(file) << replyOf(*recorder)[entry].string().value_or("");
    EXPECT_THAT(readFile(file), HasSubstr("BEGIN CERTIFICATE"));
    EXPECT_NE(runCommand("openssl x509 -noout -in " + file.string()).status, 0);
    notary_.kill();
  }
}

TEST_F(NotaryProgramTest, FaultEndsAfterItsCount) {
  startNotary(withURL({"--fault", "empty", "--fault-count", "2"}));
  EXPECT_FALSE(notarise()->reply().has_value());
  EXPECT_FALSE(notarise()->reply().has_value());
  EXPECT_TRUE(notarise()->reply().has_value());
}

TEST_F(NotaryProgramTest, SecondNotaryLeavesTheNameAlone) {
  startNotary(kWithURL);
  const CommandResult second =
      runCommand(std::string(KVL_DEVNOTARY) + " --state " + state().string());
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, HasSubstr("somebody else owns the name"));
  EXPECT_TRUE(notarise()->reply().has_value());
}

TEST_F(NotaryProgramTest, SignalEndsItCleanly) {
  startNotary();
  notary_.signal(SIGTERM);
  const int status = notary_.wait();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(NotaryProgramTest, IsStartedByTheBus) {
  const std::string services = (bus_.directory() / "services").string();
  const CommandResult installed =
      runCommand(std::string(KVL_INSTALL_ACTIVATION) + " " + services + " " + KVL_DEVNOTARY +
                 " --state '" + state().string() + "' --url \"https://it's/&|\"");
  ASSERT_EQ(installed.status, 0) << installed.output;
  EXPECT_EQ(replyOf(*notarise())["url"], Value(Array{"https://it's/&|"}));
}

TEST_F(NotaryProgramTest, ExplainsItself) {
  for (const char* program : {KVL_DEVNOTARY, KVL_DEVSERVICE}) {
    const CommandResult help = runCommand(std::string(program) + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("--state"));
    EXPECT_NE(runCommand(std::string(program) + " --nonsense").status, 0);
  }
}

}  // namespace
}  // namespace kvltest
