#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "codecs/TextRenderer.h"
#include "graphics/PixelBuffer.h"

namespace lenslark {

/// Draws the test pattern: seven colour bars that wander to the right, a QR code in the middle, and
/// a caption with the time on a dark band at the bottom. What stays the same from frame to frame is
/// drawn once, so that a whole frame costs less than copying it, and one over a frame that came
/// shortly before a fraction of that.
///
/// **Threads**: immutable.
class TestPattern {
 public:
  /// The characters that a caption consists of.
  static constexpr std::string_view captionText = "Lenslark test pattern  ";
  static constexpr std::string_view captionDigits = "0123456789:.";
  /// How far the bars move from one frame to the next, pixels.
  static constexpr int scrollPerFrame = 4;

  /// Without letters there is no caption, only its band. **Fails** with Error when `qrText` is too
  /// long for a QR code.
  TestPattern(Size size, const std::string& qrText);

  /// From now on with a caption: the masks of `captionText` and of `captionDigits`.
  void setLetters(const std::vector<GlyphMask>& text, const std::vector<GlyphMask>& digits);

  Size size() const noexcept { return size_; }
  /// Pixels per em of the caption's letters.
  double captionSize() const noexcept;

  /// Draws frame `number` (the first is 1), as long as `target` has the pattern's size. `time` is
  /// the caption's second part; characters that are not among the digits are left out.
  void draw(const PixelSpan& target, std::uint64_t number, std::string_view time) const noexcept;

  /// The same where `target` shows frame `before`, at whatever time: draws what differs, a small
  /// part of it when the frames lie close together.
  void redraw(const PixelSpan& target, std::uint64_t before, std::uint64_t number,
              std::string_view time) const noexcept;

 private:
  /// A letter as a picture to blend, and where it lies from the pen's position on the base line.
  struct Letter {
    std::shared_ptr<const PixelBuffer> picture;  // null for a blank
    int left = 0;
    int top = 0;
    double advance = 0;
  };
  /// One row of bars twice over: any rotation of it is a run of its pixels.
  using Row = std::vector<std::uint32_t>;

  /// Two for each bar, which may begin within a pixel, and for the row's end.
  static constexpr std::size_t mostEdges = 16;
  /// Parts of a row.
  class Runs;

  static Letter letter(const GlyphMask& mask);
  void makeRows();
  void makeQr(const std::string& text);
  void findEdges();
  void measureCaption();
  int offset(std::uint64_t number) const noexcept;
  PixelRect code() const noexcept;
  bool hasCode() const noexcept { return qrX_ >= 0 && qrY_ >= 0; }
  long baseline() const noexcept;
  const Row& row(int y) const noexcept;
  /// The pixels of a row at rest, moved to the right by `offset`.
  const std::uint32_t* row(int y, int offset) const noexcept;
  Runs changedRuns(int offset, int moved) const noexcept;
  void drawCaption(const PixelSpan& target, std::string_view time) const noexcept;
  double drawLetter(const PixelSpan& target, const Letter& letter, double pen) const noexcept;

  const Size size_;
  Row bars_;
  /// The dark band's rows, top first: the first and the last are only partly covered by it.
  int bandTop_ = 0;
  int bandBottom_ = 0;  // past the last
  Row bandTopEdge_;
  Row band_;
  Row bandBottomEdge_;
  std::vector<int> edges_;  // where a row at rest has another colour than one pixel before
  std::unique_ptr<PixelBuffer> qr_;
  int qrX_ = 0;
  int qrY_ = 0;
  std::vector<Letter> text_;
  std::array<Letter, captionDigits.size()> digits_;
  int captionTop_ = 0;
  int captionBottom_ = 0;  // past the last row that has letters
};

}  // namespace lenslark
