#include "config/LegacySettings.h"

#include <gtest/gtest.h>

#include <map>

namespace lenslark {
namespace {

const Date now{std::chrono::seconds(1'700'000'000)};

class FakePreferences final : public Preferences {
 public:
  explicit FakePreferences(std::map<std::string, Value> values) : values_(std::move(values)) {}
  std::optional<Value> value(const std::string& key) const override {
    const auto entry = values_.find(key);
    if (entry == values_.end()) return std::nullopt;
    return entry->second;
  }

 private:
  std::map<std::string, Value> values_;
};

ConfigFile migrated(std::map<std::string, Preferences::Value> values) {
  const FakePreferences preferences(std::move(values));
  return LegacySettings::migrated(&preferences, now);
}

SourceSpec migratedSource(const std::string& text) {
  const ConfigFile config = migrated({{"source2", text}});
  EXPECT_EQ(config.assignments.size(), 1U) << text;
  return config.global().source;
}

TEST(LegacySettingsTest, givesTheDefaultsWithoutPreferences) {
  EXPECT_EQ(LegacySettings::migrated(nullptr, now), ConfigFile());
}

TEST(LegacySettingsTest, givesTheDefaultsForEmptyPreferences) {
  EXPECT_EQ(migrated({}), ConfigFile());
}

TEST(LegacySettingsTest, carriesTheSwitchesOver) {
  const Settings settings = migrated({{"fill2", false}, {"autoInjectSimulators", false}}).settings;
  EXPECT_FALSE(settings.fill);
  EXPECT_FALSE(settings.autoInjectSimulators);
}

TEST(LegacySettingsTest, carriesTheFrameRateOver) {
  EXPECT_EQ(migrated({{"fps", 24L}}).settings.fps, 24);
  EXPECT_EQ(migrated({{"fps", 1L}}).settings.fps, 1);
  EXPECT_EQ(migrated({{"fps", 3'000'000'000L}}).settings.fps, 3'000'000'000);
}

TEST(LegacySettingsTest, keepsTheDefaultForFrameRatesThatMakeNoSense) {
  const std::vector<Preferences::Value> senseless{0L, -5L, 24.5, true, std::string("24")};
  for (const Preferences::Value& value : senseless) {
    EXPECT_EQ(migrated({{"fps", value}}).settings.fps, 30) << value.index();
  }
}

TEST(LegacySettingsTest, passesOverValuesOfAnotherType) {
  EXPECT_EQ(migrated({{"fill2", std::string("no")}, {"autoInjectSimulators", 0L}, {"source2", 5L}}),
            ConfigFile());
}

TEST(LegacySettingsTest, readsTheOldSource) {
  EXPECT_EQ(migratedSource("test"), SourceSpec{SourceSpec::Pattern{}});
  EXPECT_EQ(migratedSource("display:2"), SourceSpec{SourceSpec::Display{2}});
  EXPECT_EQ(migratedSource("window:Safari: Start"),
            SourceSpec{SourceSpec::Window{"Safari: Start"}});
}

TEST(LegacySettingsTest, takesTheFirstDisplayForAnIndexThatIsNone) {
  for (const char* text : {"display:", "display:x", "display:2x", "display:99999999999x"}) {
    EXPECT_EQ(migratedSource(text), SourceSpec{SourceSpec::Display{0}}) << text;
  }
}

TEST(LegacySettingsTest, passesOverOtherSources) {
  for (const char* text : {"", "tests", "display", "camera:1", "Display:1"}) {
    EXPECT_EQ(migrated({{"source2", std::string(text)}}), ConfigFile()) << text;
  }
}

TEST(LegacySettingsTest, datesTheSourceAndMakesItGlobal) {
  const ConfigFile config = migrated({{"source2", std::string("display:2")}, {"fps", 0L}});
  EXPECT_EQ(config.assignments, (std::vector{Assignment{.scope = Scope::global(),
                                                        .source = {SourceSpec::Display{2}},
                                                        .overlay = {},
                                                        .updatedAt = now}}));
  EXPECT_EQ(config.settings.fps, 30);
}

}  // namespace
}  // namespace lenslark
