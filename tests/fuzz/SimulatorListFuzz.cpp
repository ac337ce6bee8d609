// Any bytes as what simctl lists: they are read or refused, and what was read reads the same when
// it is written in simctl's form again.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>
#include <tuple>

#include "base/Json.h"
#include "devices/Simulator.h"

namespace {

using namespace lenslark;

std::string written(const std::vector<Simulator::Device>& devices) {
  nlohmann::json table = nlohmann::json::object();
  for (const auto& [udid, name, runtime] : devices) {
    table[runtime].push_back({{"udid", udid}, {"name", name}, {"state", "Booted"}});
  }
  return Json::compact({{"devices", table}});
}

void sort(std::vector<Simulator::Device>& devices) {
  std::ranges::stable_sort(devices, {}, &Simulator::Device::runtime);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<Simulator::Device> devices;
  try {
    devices = Simulator::parseDeviceList({reinterpret_cast<const char*>(data), size});
  } catch (const JsonError&) {
    return 0;
  }
  std::vector<Simulator::Device> again = Simulator::parseDeviceList(written(devices));
  sort(devices);
  sort(again);
  if (again != devices) std::abort();
  return 0;
}
