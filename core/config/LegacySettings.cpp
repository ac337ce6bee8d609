#include "config/LegacySettings.h"

#include "base/Text.h"

namespace lenslark::LegacySettings {
namespace {

template <typename Type>
std::optional<Type> read(const Preferences& preferences, const std::string& key) {
  const auto value = preferences.value(key);
  if (!value || !std::holds_alternative<Type>(*value)) return std::nullopt;
  return std::get<Type>(*value);
}

/// "test", "display:2" or "window:Safari", as the older application wrote them.
std::optional<SourceSpec> parseSource(std::string_view text) {
  constexpr std::string_view display = "display:";
  constexpr std::string_view window = "window:";
  if (text == "test") return SourceSpec{SourceSpec::Pattern{}};
  if (text.starts_with(display)) {
    const auto index = Text::parseInteger(text.substr(display.size()));
    return SourceSpec{SourceSpec::Display{index.value_or(0)}};
  }
  if (text.starts_with(window)) {
    return SourceSpec{SourceSpec::Window{std::string(text.substr(window.size()))}};
  }
  return std::nullopt;
}

}  // namespace

ConfigFile migrated(const Preferences* preferences, Date now) {
  ConfigFile config;
  if (preferences == nullptr) return config;
  Settings& settings = config.settings;
  settings.fill = read<bool>(*preferences, "fill2").value_or(settings.fill);
  settings.autoInjectSimulators =
      read<bool>(*preferences, "autoInjectSimulators").value_or(settings.autoInjectSimulators);
  const auto fps = read<long>(*preferences, "fps");
  if (fps && *fps >= 1) settings.fps = *fps;
  if (const auto text = read<std::string>(*preferences, "source2")) {
    if (const auto source = parseSource(*text)) {
      config.set({.scope = Scope::global(), .source = *source, .overlay = {}, .updatedAt = now});
    }
  }
  return config;
}

}  // namespace lenslark::LegacySettings
