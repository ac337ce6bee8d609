// Any bytes as what ps and the emulator print: what is read out of them stands in them, on one
// line, and our own webcams are found or missed in words.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "devices/AndroidEmulator.h"
#include "devices/CommandError.h"

namespace {

using namespace lenslark;

/// A text that was cut out of one line.
void expectPiece(std::string_view output, std::string_view piece) {
  if (piece.empty() || piece.find('\n') != std::string_view::npos ||
      output.find(piece) == std::string_view::npos) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view output(reinterpret_cast<const char*>(data), size);
  for (const auto& process : AndroidEmulator::parseProcessList(output)) {
    expectPiece(output, process.avd);
  }
  for (const std::string& name : AndroidEmulator::parseAVDList(output)) expectPiece(output, name);

  const auto webcams = AndroidEmulator::parseWebcamList(output);
  for (const auto& [label, name] : webcams) {
    expectPiece(output, label);
    expectPiece(output, name);
  }
  try {
    const auto labels = AndroidEmulator::chooseWebcams(webcams);
    expectPiece(output, labels.back);
    expectPiece(output, labels.front);
  } catch (const CommandError&) {
    // Ours are not among them.
  }
  return 0;
}
