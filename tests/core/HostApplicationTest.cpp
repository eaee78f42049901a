#include <local/platform/HostApplication.h>

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace {

TEST(HostApplicationTest, HasNoIdentifierUntilOneIsSet) {
  EXPECT_EQ(kvl::hostIdentifier(), std::nullopt);
}

TEST(HostApplicationTest, AnswersTheIdentifierThatWasSetAndClearsItWithAnEmptyText) {
  kvl::setHostIdentifier("org.example.Editor");
  EXPECT_EQ(kvl::hostIdentifier(), "org.example.Editor");
  kvl::setHostIdentifier("");
  EXPECT_EQ(kvl::hostIdentifier(), std::nullopt);
}

TEST(HostApplicationTest, FallsBackToTheDefaultApplicationsIdentifier) {
  GApplication* application = g_application_new("org.example.Fallback", G_APPLICATION_NON_UNIQUE);
  g_application_set_default(application);
  EXPECT_EQ(kvl::hostIdentifier(), "org.example.Fallback");
  kvl::setHostIdentifier("org.example.First");
  EXPECT_EQ(kvl::hostIdentifier(), "org.example.First");
  kvl::setHostIdentifier("");
  g_application_set_default(nullptr);
  g_object_unref(application);
}

}  // namespace
