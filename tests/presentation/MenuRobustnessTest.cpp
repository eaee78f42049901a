#include "tests/presentation/MadeMenu.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

class MenuRobustnessTest : public testing::TestWithParam<kvl::SystemVersion> {
 protected:
  ~MenuRobustnessTest() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }

  static std::vector<std::uint8_t> randomBytes(unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(random() % 200);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
  }
};

TEST_P(MenuRobustnessTest, MalformedDescriptionsNeverStopAMenu) {
  for (unsigned seed = 0; seed < 1000; ++seed) {
    const auto descriptions = kvltest::madeDescriptions(randomBytes(seed));
    ASSERT_EQ(kvltest::faultOfMenu(descriptions, GetParam()), "")
        << seed << ": " << descriptions.description();
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, MenuRobustnessTest,
                         testing::Values(kvl::SystemVersion{13, 0}, kvl::SystemVersion{14, 0},
                                         kvl::SystemVersion{14, 4}),
                         [](const auto& parameter) {
                           return std::to_string(parameter.param.major) + "point" +
                                  std::to_string(parameter.param.minor);
                         });

}  // namespace
