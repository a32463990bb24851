#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "parameters/Catalogue.h"
#include "parameters/ParameterPage.h"

namespace vellumic {
namespace {

TEST(Catalogue, FindsByNameAndBySlot) {
  const auto found = findParameter("equalizer.right.band10.q");
  ASSERT_TRUE(found);
  EXPECT_EQ(index(found->parameter->slot), 1280U);
  EXPECT_FALSE(findParameter("level.envelope_s_db"));  // seconds
  EXPECT_EQ(findParameter(Raw{1286}), nullptr);
}

std::string contents(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// On a mismatch run generate_parameter_files in the checkout.
TEST(Catalogue, GeneratedFilesAreUpToDate) {
  EXPECT_TRUE(contents("docs/parameters.md") == parameterPage()) << "docs/parameters.md is old";
  EXPECT_TRUE(contents("settings/factory.toml") == factorySettingsFile())
      << "settings/factory.toml is old";
}

}  // namespace
}  // namespace vellumic
