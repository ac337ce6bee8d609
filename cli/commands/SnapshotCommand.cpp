#include "commands/SnapshotCommand.h"

#include <fmt/core.h>

#include "commands/CameraFlag.h"
#include "commands/Failure.h"
#include "commands/Output.h"
#include "commands/SharedControl.h"
#include "feeds/FeedReader.h"

namespace lenslark::SnapshotCommand {

void run(const Arguments& arguments) {
  const auto device = arguments.value("--device");
  const auto path = arguments.value("-o");
  if (!device || !path) {
    throw UsageError("usage: lenslark snapshot --device … [--camera back|front] -o out.png");
  }
  const CameraPosition camera = cameraFlag(arguments).value_or(CameraPosition::back);
  const auto snapshot = sharedControl().snapshot(*device, camera);
  FeedReader::writePNG(*snapshot.image, *path);
  const Size size = snapshot.image->size();
  Output::printLine(fmt::format("Wrote {} ({}x{})", *path, size.width, size.height));
}

}  // namespace lenslark::SnapshotCommand
