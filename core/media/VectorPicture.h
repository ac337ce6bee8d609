#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"
#include "graphics/PixelBuffer.h"

/// Pictures that are drawn rather than decoded, by tools that run as bounded child processes: a
/// small file of this kind may ask for any amount of work.
///
/// **Threads**: any. **Fails** with Error that names the package to install when a tool is missing.
namespace lenslark::VectorPicture {

/// The tools by absolute path.
struct Tools {
  std::string pdfInfo = "/usr/bin/pdfinfo";
  std::string pdfPainter = "/usr/bin/pdftoppm";
  std::string svgPainter = "/usr/bin/rsvg-convert";
};

enum class Format { pdf, svg };

/// What a file is by its first bytes. `extension` (lower case, with its dot) only lets a PDF begin
/// with something else, as the format's readers allow.
std::optional<Format> recognise(const FileDescriptor& file, std::string_view extension);

/// The size in pixels of page one's media box, turned as the page is, once its longer side is
/// `longerSide`. Nothing when it has none.
std::optional<Size> measurePdf(const FileDescriptor& file, int longerSide, const Tools& tools = {});

/// Page one on white, in that size.
std::shared_ptr<PixelBuffer> drawPdf(const FileDescriptor& file, int longerSide,
                                     const Tools& tools = {});

/// The drawing scaled to `size`. What it refers to outside itself is left out.
std::shared_ptr<PixelBuffer> drawSvg(const FileDescriptor& file, Size size,
                                     const Tools& tools = {});

}  // namespace lenslark::VectorPicture
