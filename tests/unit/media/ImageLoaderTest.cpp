#include "media/ImageLoader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fmt/core.h>

#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "media/VectorPicture.h"
#include "support/SamplePicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

struct PdfPage {
  std::string mediaBox = "0 0 200 100";
  std::string more;
  std::string content;
};

/// One page; readers repair the missing cross-reference table.
std::string pdf(const PdfPage& page) {
  return fmt::format(
      "%PDF-1.4\n"
      "1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n"
      "2 0 obj\n<< /Type /Pages /Kids [3 0 R] /Count 1 >>\nendobj\n"
      "3 0 obj\n<< /Type /Page /Parent 2 0 R /MediaBox [{}] {} /Contents 4 0 R >>\nendobj\n"
      "4 0 obj\n<< /Length {} >>\nstream\n{}\nendstream\nendobj\n"
      "trailer\n<< /Root 1 0 R >>\n",
      page.mediaBox, page.more, page.content.size(), page.content);
}

constexpr Rgba red{255, 0, 0};
constexpr Rgba green{0, 255, 0};
constexpr Rgba blue{0, 0, 255};
constexpr Rgba white{255, 255, 255};

/// Red at the bottom left, green at the bottom right, nothing above: PDF counts y upwards.
const std::string twoFields = "1 0 0 rg 0 0 100 50 re f 0 1 0 rg 100 0 100 50 re f";

TEST(ImageLoaderTest, drawsAPdfPageOnWhiteWithItsLongerSideExactlyTheBound) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.pdf", pdf({.content = twoFields}));
  const auto picture = ImageLoader::load(path, 2048);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{2048, 1024}));
  EXPECT_TRUE(picture->opaque());
  expectFields(picture->view(), {white, white, red, green}, 1);
}

TEST(ImageLoaderTest, measuresAPdfAsItIsDrawn) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.pdf", pdf({.mediaBox = "0 0 612 792"}));
  EXPECT_EQ(ImageLoader::measure(path, 2048), (Size{1583, 2048}));
  EXPECT_EQ(ImageLoader::load(path, 2048)->size(), (Size{1583, 2048}));
}

TEST(ImageLoaderTest, showsTheMediaBoxWhateverTheCropBoxSays) {
  const TemporaryDirectory directory;
  const auto path =
      directory.write("page.pdf", pdf({.more = "/CropBox [0 0 50 25]", .content = twoFields}));
  const auto picture = ImageLoader::load(path, 400);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{400, 200}));
  expectFields(picture->view(), {white, white, red, green}, 1);
}

TEST(ImageLoaderTest, movesAMediaBoxThatDoesNotBeginAtTheOrigin) {
  const TemporaryDirectory directory;
  const auto path = directory.write(
      "page.pdf", pdf({.mediaBox = "-100 -50 100 50",
                       .content = "0 0 1 rg -100 -50 100 50 re f 1 0 0 rg 0 0 100 50 re f"}));
  const auto picture = ImageLoader::load(path, 300);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{300, 150}));
  expectFields(picture->view(), {white, red, blue, white}, 1);
}

TEST(ImageLoaderTest, turnsAPdfPageAsAViewerDoes) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.pdf", pdf({.more = "/Rotate 90", .content = twoFields}));
  const auto picture = ImageLoader::load(path, 400);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{200, 400}));
  // Clockwise: what was at the bottom left comes to the top left.
  expectFields(picture->view(), {red, white, green, white}, 1);
}

TEST(ImageLoaderTest, recognisesAPdfByItsContent) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.jpg", pdf({.content = twoFields}));
  const auto picture = ImageLoader::load(path, 200);
  ASSERT_TRUE(picture);
  expectFields(picture->view(), {white, white, red, green}, 1);
}

TEST(ImageLoaderTest, takesAPdfWithAPreambleByItsExtension) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.PDF", "preamble\n" + pdf({.content = twoFields}));
  EXPECT_TRUE(ImageLoader::load(path, 200));
}

TEST(ImageLoaderTest, givesNothingForAPdfWithoutAPage) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(ImageLoader::load(directory.write("broken.pdf", "%PDF-1.4\nnothing"), 200));
}

TEST(ImageLoaderTest, saysWhichPackageHoldsAMissingTool) {
  const TemporaryDirectory directory;
  const auto path = directory.write("page.pdf", pdf({}));
  const FileDescriptor file = FileDescriptor::open(path, O_RDONLY);
  try {
    VectorPicture::drawPdf(file, 200, {.pdfInfo = directory.path() / "no-such-tool"});
    FAIL();
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find("no-such-tool is missing"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("poppler-utils"), std::string::npos);
  }
}

const std::string svgFields =
    "<svg xmlns='http://www.w3.org/2000/svg' width='200' height='100'>"
    "<rect x='0' y='50' width='100' height='50' fill='#f00'/>"
    "<rect x='100' y='50' width='100' height='50' fill='#0f0' fill-opacity='0.5'/></svg>";

TEST(ImageLoaderTest, drawsSvgWithPremultipliedAlpha) {
  const TemporaryDirectory directory;
  const auto path = directory.write("drawing.svg", svgFields);
  EXPECT_EQ(ImageLoader::measure(path, 2048), (Size{200, 100}));
  const auto picture = ImageLoader::load(path, 2048);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{200, 100}));
  EXPECT_FALSE(picture->opaque());
  expectFields(picture->view(), {Rgba{0, 0, 0, 0}, Rgba{0, 0, 0, 0}, red, Rgba{0, 128, 0, 128}}, 1);
}

TEST(ImageLoaderTest, drawsSvgNoLargerThanTheBound) {
  const TemporaryDirectory directory;
  const auto path = directory.write("drawing.png", svgFields);
  EXPECT_EQ(ImageLoader::measure(path, 50), (Size{50, 25}));
  EXPECT_EQ(ImageLoader::load(path, 50)->size(), (Size{50, 25}));
}

TEST(ImageLoaderTest, leavesOutWhatAnSvgRefersTo) {
  const TemporaryDirectory directory;
  const SamplePicture sample(directory);
  sample.run("vips copy sample.ppm inner.png");
  const auto path = directory.write(
      "drawing.svg",
      fmt::format("<svg xmlns='http://www.w3.org/2000/svg' "
                  "xmlns:xlink='http://www.w3.org/1999/xlink' width='96' height='64'>"
                  "<image xlink:href='file://{}' width='96' height='32'/>"
                  "<image xlink:href='inner.png' y='32' width='96' height='32'/></svg>",
                  sample.path("inner.png")));
  const auto picture = ImageLoader::load(path, 200);
  if (!picture) return;
  const Rgba nothing{0, 0, 0, 0};
  expectFields(picture->view(), {nothing, nothing, nothing, nothing}, 0);
}

TEST(ImageLoaderTest, loadsAPictureWhateverItsNameSays) {
  const TemporaryDirectory directory;
  const SamplePicture sample(directory);
  sample.run("vips copy sample.ppm sample.png && mv sample.png sample.pdf");
  const auto picture = ImageLoader::load(sample.path("sample.pdf"), 2048);
  ASSERT_TRUE(picture);
  expectSample(picture->view(), 0);
}

TEST(ImageLoaderTest, neitherWaitsForAFifoNorReadsADirectory) {
  const TemporaryDirectory directory;
  const auto fifo = directory / "fifo.jpg";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(ImageLoader::load(fifo, 100));
  EXPECT_FALSE(ImageLoader::measure(fifo, 100));
  EXPECT_FALSE(ImageLoader::load(directory.path(), 100));
  EXPECT_FALSE(ImageLoader::load(directory / "missing.png", 100));
}

}  // namespace
}  // namespace lenslark
