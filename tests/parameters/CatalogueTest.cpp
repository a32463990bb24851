#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>

#include "parameters/Catalogue.h"
#include "parameters/ParameterPage.h"

namespace vellumic {
namespace {

// The factory settings by slot, kept apart from the catalogue on purpose. The equaliser is off.
const std::map<int, float> factory{{1283, 1},           {1284, 1024},    {1285, 1},
                                   {1287, 0.95F},       {1288, 1.2F},    {1289, 1.1F},
                                   {1290, 0.3162F},     {1291, 1.2F},    {1292, 1.1F},
                                   {1293, 0.3162F},     {1294, 1},       {1295, 0.9487F},
                                   {1296, 1.66F},       {1297, 1.67F},   {1298, 4.6F},
                                   {1299, 3},           {1300, 0.922F},  {1301, 0.95F},
                                   {1302, 0.3162F},     {1303, 200},     {1304, 1},
                                   {1306, 0.7F},        {1307, 0.7F},    {1308, 30},
                                   {1309, 0.01F},       {1310, 0.7F},    {1311, 0.999F},
                                   {1312, 0.0316F},     {1313, 0.2F},    {1314, 1e-05F},
                                   {1315, 10},          {1316, 0.0001F}, {1317, 16000},
                                   {1318, 1},           {1319, 1},       {1320, 0},
                                   {1321, 0},           {1322, 10},      {1323, 1},
                                   {1324, 1},           {1327, 1},       {1328, 31.622776F},
                                   {1329, 0.15848932F}, {1330, 0.01F},   {1331, 0.1F},
                                   {1332, 6},           {1333, 1},       {1334, 60},
                                   {1335, 1.7782794F},  {1336, 1},       {1337, 1},
                                   {1338, 0.5011872F},  {1339, 0.0001F}, {1340, 0.0005F},
                                   {1341, 0.005F},      {1342, 0},       {1343, 60},
                                   {1344, 1.7783F},     {1345, 1},       {1346, 0.004F},
                                   {1355, 5},           {1356, 1},       {1357, 4}};

TEST(Catalogue, FactoryValuesAreTheAgreedOnes) {
  const RawValues& values = factorySettings();
  for (int slot = 0; slot < static_cast<int>(values.size()); ++slot) {
    const bool band = slot >= 1181 && slot <= 1280;
    const float bandValues[] = {0.0F, 1.0F, 1000.0F, 1.0F, 0.7F};
    const auto agreed = factory.find(slot);
    const float expected = band                      ? bandValues[(slot - 1181) % 5]
                           : agreed == factory.end() ? 0.0F
                                                     : agreed->second;
    EXPECT_EQ(values[static_cast<std::size_t>(slot)], expected) << "slot " << slot;
  }
}

TEST(Catalogue, NamesTakeDecibelsWhereTheyAreLevels) {
  const auto found = findParameter("equalizer.right.band10.q");
  ASSERT_TRUE(found);
  EXPECT_EQ(index(found->parameter->slot), 1280U);
  EXPECT_FALSE(found->decibels);
  ASSERT_TRUE(findParameter("level.makeup_gain_db"));
  EXPECT_TRUE(findParameter("level.makeup_gain_db")->decibels);
  for (const char* unknown : {"", "equalizer", "level.envelope_s_db", "equalizer.left.band11.q"})
    EXPECT_FALSE(findParameter(unknown)) << unknown;
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
