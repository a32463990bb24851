#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>

#include "parameters/ParameterPage.h"
#include "parameters/SettingsFile.h"

namespace vellumic {
namespace {

float stored(const RawValues& values, std::string_view name) {
  return values[index(findParameter(name)->parameter->slot)];
}

RawValues applied(std::string_view text, SettingsWarnings& warnings) {
  RawValues values = factorySettings();
  applySettingsText(text, "test.toml", values, warnings);
  return values;
}

TEST(SettingsFile, TablesDottedKeysNamesAndDecibelsAreUnderstood) {
  SettingsWarnings warnings;
  const RawValues values = applied(
      "\xEF\xBB\xBF"
      R"(# größer C:\Übung\
#À
equalizer.enabled = true
beamformer.enabled = 0
[equalizer.left]
band1 = { enabled = 1, type = "high_shelf", frequency_hz = 4000, gain_db = -6 }
[equalizer.left.band2]
type = """\
  low_pass"""#................
[noise.gain]
)",
      warnings);
  EXPECT_EQ(stored(values, "equalizer.enabled"), 1.0F);
  EXPECT_EQ(stored(values, "beamformer.enabled"), 0.0F);
  EXPECT_EQ(stored(values, "equalizer.left.band1.type"), 5.0F);
  EXPECT_EQ(stored(values, "equalizer.left.band1.frequency_hz"), 4000.0F);
  EXPECT_NEAR(stored(values, "equalizer.left.band1.gain"), 0.501187F, 1e-6F);
  EXPECT_EQ(stored(values, "equalizer.left.band2.type"), 2.0F);
  EXPECT_TRUE(warnings.empty());
}

std::string repeated(std::string_view part, std::size_t times) {
  std::string text;
  for (std::size_t n = 0; n < times; ++n) text += part;
  return text;
}

TEST(Catalogue, HoldsNothingAtASlotWithoutAName) { EXPECT_EQ(findParameter(Raw{1286}), nullptr); }

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

// Every fault stands behind a good line, which must then have no effect.
TEST(SettingsFile, FaultsNameLineSettingAndRemedyAndChangeNothing) {
  const struct {
    std::string text;
    std::vector<const char*> told;  // what the message must hold
  } faults[] = {
      {"echo.power_smothing = 1",
       {"test.toml:2: ", "echo.power_smothing", "echo.power_smoothing?"}},
      {"[equalizer.left.band1]\ngian_db = 3", {"test.toml:3: ", "equalizer.left.band1.gain_db?"}},
      {"[equaliser]", {":2: equaliser: no such setting"}},
      {"level.levle = 1", {"level.level?"}},
      {"oll.enabled = 1", {"noise.enabled?"}},
      {"rimjitertas = 1", {"limiter.level?"}},
      {"noise = 1", {":2: noise: no such setting; did you mean noise."}},
      {"noise.enabled = \"yes\"",
       {":2: ", "true or false", "the text \"yes\"", "noise.enabled = true"}},
      {"level.level = true", {":2: level.level", "a number", "found true"}},
      {"level.level = [1, 2]", {":2: ", "a list"}},
      {"level.level = 1979-05-27", {":2: ", "a date or time"}},
      {"[noise.enabled]\nx = 1", {":2: noise.enabled", "a table"}},
      {"level.level = nan", {":2: level.level: nan is not a number that can be stored"}},
      {"level.level_db = 900", {"900 is not a number", "level.level_db = -16"}},
      {"level.envelope_s_db = 3", {":2: level.envelope_s_db: no such setting"}},
      {"level.level_db = \"peak\"", {"a number of decibels", "the text \"peak\""}},
      {"level.level = 1\nlevel.level_db = 0", {"level.level_db", "given twice"}},
      {"equalizer.left.band1.type = \"peek\"", {":2: ", "\"high_pass\"", "peek"}},
      {"\"l\\u0000\\u007f\u00E4\\nel\" = 1", {":2: l??\u00E4?el: no such setting"}},
      {"level.level = 1\nlevel.level = 2", {"test.toml:3: not valid TOML"}},
      {"gr\u00F6\u00DFe = 1", {"test.toml:2: not valid TOML"}},
      {"level.level = 1 \u00E4", {"test.toml:2: not valid TOML"}},
      {"a = \"\"\"\\\n \u00E4\"\"\"", {"test.toml:3: not valid TOML", "beyond ASCII"}},
      {repeated("a.", 15) + "a = 1", {":2: a.a.", "no such setting"}},
      {repeated("a.", 16) + "a = 1", {":2: ", "16 parts"}},
      {"#'................\nx = '''\n................\n'''\ny = ''''''\n" +
           repeated("''.\"\\\"=\".'\\'.'='.", 100000) + "a = 1",
       {"test.toml:7: ", "16 parts"}},
      {repeated("a", 300000) + " = 1", {":2: aaa", "no such setting; did you mean"}}};
  for (const auto& [text, parts] : faults) {
    RawValues values = factorySettings();
    SettingsWarnings warnings;
    try {
      applySettingsText("echo.enabled = false\n" + text, "test.toml", values, warnings);
      ADD_FAILURE() << "accepted: " << text;
    } catch (const SettingsError& error) {
      const std::string told = error.what();
      EXPECT_EQ(told.find('\n'), std::string::npos) << told;
      EXPECT_LT(told.size(), 1100U);
      for (const char* part : parts)
        EXPECT_NE(told.find(part), std::string::npos) << part << " is missing in: " << told;
    }
    EXPECT_EQ(values, factorySettings()) << text;
    EXPECT_TRUE(warnings.empty());
  }
  EXPECT_EQ(onOneLine(std::string(1000, 'a')).size(), 1000U);
  EXPECT_EQ(onOneLine(std::string(1001, 'a')).size(), 805U);
}

TEST(SettingsFile, ValuesOutOfRangeAreAppliedWithAWarning) {
  const struct {
    const char *name, *rest, *range;
    float value;
  } odd[] = {{"pipeline.input_gain", "_db = 40", "0.1 to 10.0", 100.0F},
             {"pipeline.input_gain", " = 0", "0.1 to 10.0", 0.0F},
             {"echo.cross_factor", " = 0.9", "run away", 0.9F},
             {"echo.enabled", " = 0.5", "counts as off", 0.5F},
             {"echo.warmup_blocks", " = 2.5", "loses its fraction", 2.5F}};
  for (const auto& [name, rest, range, value] : odd) {
    SettingsWarnings warnings;
    EXPECT_FLOAT_EQ(stored(applied(std::string(name) + rest, warnings), name), value);
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings[0].find(std::string("test.toml:1: ") + name), std::string::npos);
    EXPECT_NE(warnings[0].find(range), std::string::npos) << warnings[0];
  }
}

TEST(Assignment, TakesTheValuesOfASettingsFileWithoutQuotes) {
  const std::tuple<const char*, const char*, float> good[] = {
      {" echo.enabled \t=  on \t", "echo.enabled", 1.0F},
      {"level.release_s=+2.5e0", "level.release_s", 2.5F},
      {"beamformer.enabled=off", "beamformer.enabled", 0.0F},
      {"equalizer.right.band10.type='low_pass'", "equalizer.right.band10.type", 2.0F},
      {"equalizer.right.band10.type=\"notch\"", "equalizer.right.band10.type", 6.0F}};
  for (const auto& [text, name, value] : good) {
    RawValues values = factorySettings();
    SettingsWarnings warnings;
    applyAssignment(text, values, warnings);
    EXPECT_EQ(stored(values, name), value) << text;
    EXPECT_TRUE(warnings.empty()) << text;
  }
  const std::pair<const char*, const char*> bad[] = {
      {" =1", " =1: needs the form NAME=VALUE"},
      {"echo.enabled", "needs the form NAME=VALUE"},
      {"echo.enabled=", "needs the form NAME=VALUE"},
      {"level.level=\"\"", "a number, found the text \"\";"},
      {"level.level=1e999", "inf is not a number that can be stored"},
      {"level.level=1e999 2", "found the text \"1e999 2\";"},
      {"level.level=1 2", "found the text \"1 2\";"}};
  for (const auto& [text, told] : bad) {
    RawValues values = factorySettings();
    SettingsWarnings warnings;
    try {
      applyAssignment(text, values, warnings);
      ADD_FAILURE() << "accepted: " << text;
    } catch (const SettingsError& error) {
      EXPECT_NE(std::string(error.what()).find(told), std::string::npos) << error.what();
    }
    EXPECT_EQ(values, factorySettings());
  }
}

TEST(SettingsWriter, WhatIsWrittenReadsBackToTheSameBits) {
  std::mt19937 random(5);
  for (int round = 0; round < 50; ++round) {
    RawValues values = factorySettings(), expected = values;
    for (const Parameter& parameter : catalogue()) {
      const auto drawn = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
      float& value = values[index(parameter.slot)];
      if (random() % 2 == 0) value = random() % 2 == 0 ? drawn : static_cast<float>(random() % 9);
      if (std::isfinite(value)) expected[index(parameter.slot)] = value;  // else a comment
    }
    for (const SettingsScope scope : {SettingsScope::all, SettingsScope::changedFromFactory}) {
      SettingsWarnings warnings;
      ASSERT_EQ(applied(writeSettings(values, scope), warnings), expected);
    }
  }
  EXPECT_EQ(writeSettings(factorySettings(), SettingsScope::changedFromFactory), "");
}

TEST(SettingsWriter, SaysWhatAValueMeans) {
  SettingsWarnings warnings;
  RawValues values = applied(
      "equalizer.left.band1.type = 0\nequalizer.left.band2.type = 7\n"
      "pipeline = { block_size = 1e6, input_gain = 0.999, output_gain = 0 }",
      warnings);
  values[index(Raw::levelMakeupGain)] = std::numeric_limits<float>::infinity();
  const std::string text = writeSettings(values, SettingsScope::changedFromFactory);
  for (const char* part :
       {"type = \"gain\"\n", "type = \"band_pass\"\n", "\nblock_size = 1e+06\n",
        "it is 1; 0.0 dB\ninput_gain = 0.999\n", "it is 1; linear\noutput_gain = 0.0\n",
        "; linear\n# makeup_gain holds inf, which cannot be written here\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << " is missing in\n" << text;
}

TEST(RawFile, TakesAnyBitsButOnlyTheExactSize) {
  const auto path = std::filesystem::temp_directory_path() / "vellumic_raw_file_test.bin";
  for (const std::size_t size : {5459U, 5460U, 5461U}) {
    std::string bytes(size, '\xFF');
    for (std::size_t n = 0; n < 5000; ++n) bytes[n] = static_cast<char>(7 * n);
    std::ofstream(path, std::ios::binary) << bytes;
    if (size == 5460)
      EXPECT_EQ(std::memcmp(readRawFile(path).data(), bytes.data(), size), 0);
    else
      EXPECT_THROW(readRawFile(path), SettingsError) << size;
  }
  std::filesystem::remove(path);
  RawValues values{};
  SettingsWarnings warnings;
  for (const auto& unreadable : {path, path.parent_path()})
    EXPECT_THROW(applySettingsFile(unreadable, values, warnings), SettingsError) << unreadable;
}

}  // namespace
}  // namespace vellumic
