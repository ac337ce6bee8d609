// Any bytes as `config.json`: they decode or are refused, and what decoded is saved and read back
// as the same value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/Json.h"
#include "config/ConfigJson.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace lenslark;
  ConfigFile config;
  try {
    config = ConfigJson::read({reinterpret_cast<const char*>(data), size});
  } catch (const JsonError&) {
    return 0;
  }
  if (ConfigJson::read(ConfigJson::write(config)) != config) std::abort();
  config.resolve(DeviceKey::ios("A"), CameraPosition::front);
  config.prune(0, Date());
  return 0;
}
