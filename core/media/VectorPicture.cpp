#include "media/VectorPicture.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "base/Text.h"
#include "codecs/Modules.h"
#include "media/BoundedProcess.h"

namespace lenslark::VectorPicture {
namespace {

constexpr std::string_view pdfMagic = "%PDF-";
// The child's standard input as a file that it can seek in.
constexpr const char* standardInput = "/proc/self/fd/0";

using Bytes = std::vector<std::byte>;

std::string_view asText(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::optional<Bytes> runTool(const std::string& tool, const char* package,
                             const std::vector<std::string>& arguments, const FileDescriptor& file,
                             std::size_t outputBytes) {
  if (::access(tool.c_str(), X_OK) != 0) {
    throw Error(fmt::format("{} is missing, without which pictures of this kind cannot be shown. "
                            "Install the package {}.",
                            tool, package),
                "tool_missing");
  }
  return BoundedProcess::run(tool, arguments, file, {.outputBytes = outputBytes});
}

/// A page's media box in points and its clockwise turn in degrees.
struct Page {
  double width = 0;
  double height = 0;
  int turn = 0;
};

/// Reads lines such as "Page    1 MediaBox:     0.00     0.00   612.00   792.00".
Page parsePage(std::string_view text) {
  Page page;
  for (const std::string_view line : Text::split(text, '\n')) {
    const auto words = Text::split(line, ' ');
    if (words.size() < 4 || words[0] != "Page" || words[1] != "1") continue;
    if (words[2] == "rot:") page.turn = Text::parseInt(words[3]).value_or(0);
    if (words[2] == "MediaBox:" && words.size() == 7) {
      const auto number = [&words](std::size_t i) { return Text::parseDouble(words[i]); };
      const auto left = number(3), bottom = number(4), right = number(5), top = number(6);
      if (!left || !bottom || !right || !top) continue;
      page.width = std::abs(*right - *left);
      page.height = std::abs(*top - *bottom);
    }
  }
  return page;
}

/// Page one in pixels.
struct Sheet {
  Size unturned;
  bool onItsSide = false;

  Size upright() const noexcept {
    return onItsSide ? Size{unturned.height, unturned.width} : unturned;
  }
};

std::optional<Sheet> layOut(const FileDescriptor& file, int longerSide, const Tools& tools) {
  constexpr std::size_t longestReport = 1UL << 20;
  const auto report = runTool(tools.pdfInfo, "poppler-utils",
                              {"-box", "-f", "1", "-l", "1", standardInput}, file, longestReport);
  if (!report) return std::nullopt;
  const Page page = parsePage(asText(*report));
  if (!(page.width > 0 && page.height > 0)) return std::nullopt;
  const double scale = longerSide / std::max(page.width, page.height);
  const auto side = [scale](double points) {
    return static_cast<int>(std::lround(points * scale));
  };
  const Sheet sheet{.unturned = {side(page.width), side(page.height)},
                    .onItsSide = page.turn % 180 != 0};
  if (sheet.unturned.empty()) return std::nullopt;
  return sheet;
}

/// The body of a binary PPM ("P6", width, height, 255) of this size, as a picture.
std::shared_ptr<PixelBuffer> fromPpm(const Bytes& ppm, Size size) {
  const std::string header = fmt::format("P6\n{} {}\n255\n", size.width, size.height);
  const std::size_t rowBytes = static_cast<std::size_t>(size.width) * 3;
  if (!asText(ppm).starts_with(header) ||
      ppm.size() < header.size() + rowBytes * static_cast<std::size_t>(size.height)) {
    return nullptr;
  }
  auto picture = std::make_shared<PixelBuffer>(size, true);
  const auto* from = reinterpret_cast<const std::uint8_t*>(ppm.data()) + header.size();
  for (int y = 0; y < size.height; ++y) {
    std::uint8_t* to = picture->span().row(y);
    for (int x = 0; x < size.width; ++x, from += 3, to += 4) {
      to[0] = from[2];
      to[1] = from[1];
      to[2] = from[0];
      to[3] = 255;
    }
  }
  return picture;
}

}  // namespace

std::optional<Format> recognise(const FileDescriptor& file, std::string_view extension) {
  constexpr std::size_t longestPreamble = 4096;
  constexpr std::size_t pdfPreamble = 1024;
  std::array<std::byte, longestPreamble> buffer;
  const ssize_t count = readAt(file, buffer, 0);
  if (count <= 0) return std::nullopt;
  std::string_view head(reinterpret_cast<const char*>(buffer.data()),
                        static_cast<std::size_t>(count));
  if (head.starts_with(pdfMagic)) return Format::pdf;
  if (extension == ".pdf" && head.substr(0, pdfPreamble).find(pdfMagic) != head.npos) {
    return Format::pdf;
  }
  // Compressed SVG: no picture format of its own begins like this.
  if (head.starts_with("\x1f\x8b")) return Format::svg;
  if (head.starts_with("\xef\xbb\xbf")) head.remove_prefix(3);
  if (Text::trim(head).starts_with('<') && head.find("<svg") != head.npos) return Format::svg;
  return std::nullopt;
}

std::optional<Size> measurePdf(const FileDescriptor& file, int longerSide, const Tools& tools) {
  const auto sheet = layOut(file, longerSide, tools);
  return sheet ? std::optional(sheet->upright()) : std::nullopt;
}

std::shared_ptr<PixelBuffer> drawPdf(const FileDescriptor& file, int longerSide,
                                     const Tools& tools) {
  const auto sheet = layOut(file, longerSide, tools);
  if (!sheet) return nullptr;
  constexpr std::size_t header = 64;
  const Size size = sheet->upright();
  const std::size_t outputBytes =
      static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 3 + header;
  // The tool wants the size of the page as it lies before it is turned.
  const auto ppm = runTool(
      tools.pdfPainter, "poppler-utils",
      {"-f", "1", "-l", "1", "-singlefile", "-scale-to-x", std::to_string(sheet->unturned.width),
       "-scale-to-y", std::to_string(sheet->unturned.height), standardInput},
      file, outputBytes);
  return ppm ? fromPpm(*ppm, size) : nullptr;
}

std::shared_ptr<PixelBuffer> drawSvg(const FileDescriptor& file, Size size, const Tools& tools) {
  constexpr std::size_t slack = 1UL << 20;
  const std::size_t outputBytes =
      static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4 + slack;
  const auto png = runTool(tools.svgPainter, "librsvg2-bin",
                           {"--format", "png", "--width", std::to_string(size.width), "--height",
                            std::to_string(size.height)},
                           file, outputBytes);
  return png ? Modules::imageCodec().load(*png, size.longerSide()) : nullptr;
}

}  // namespace lenslark::VectorPicture
