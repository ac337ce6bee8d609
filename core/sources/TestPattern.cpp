#include "sources/TestPattern.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "graphics/Compositor.h"
#include "sources/QrCode.h"

namespace lenslark {
namespace {

/// Red, green and blue of the bars from left to right, 0...1.
struct Light {
  double red, green, blue;
};
constexpr std::array<Light, 7> barColors{{{0.75, 0.75, 0.75},
                                          {0.75, 0.75, 0},
                                          {0, 0.75, 0.75},
                                          {0, 0.75, 0},
                                          {0.75, 0, 0.75},
                                          {0.75, 0, 0},
                                          {0, 0, 0.75}}};

// The layout, in fractions of the picture's height (of the width for x), y from the bottom.
constexpr double qrSideOfShorter = 0.45;
constexpr int qrMargin = 16;  // pixels of white around the code
constexpr double bandY = 0.04;
constexpr double bandHeight = 0.09;
constexpr double bandAlpha = 0.7;
constexpr double captionX = 0.04;
constexpr double captionBaseline = 0.065;
constexpr double captionHeight = 0.05;

std::uint32_t pixel(const Light& light) noexcept {
  const auto byte = [](double value) {
    return static_cast<std::uint32_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
  };
  return 0xFF000000U | byte(light.red) << 16 | byte(light.green) << 8 | byte(light.blue);
}

Light mix(const Light& a, const Light& b, double shareOfB) noexcept {
  const auto channel = [shareOfB](double x, double y) { return x + (y - x) * shareOfB; };
  return {channel(a.red, b.red), channel(a.green, b.green), channel(a.blue, b.blue)};
}

/// The colours of one row in its resting place. A bar is one pixel wider than its share and painted
/// over the one before it; the last one, wrapped round, covers the row's first pixel.
std::vector<Light> restingRow(int width) {
  std::vector<Light> row(static_cast<std::size_t>(width));
  const double barWidth = static_cast<double>(width) / barColors.size();
  for (int x = 0; x < width; ++x) {
    auto& light = row[static_cast<std::size_t>(x)];
    light = barColors[0];
    for (std::size_t bar = 1; bar < barColors.size(); ++bar) {
      const double covered = std::clamp(x + 1 - static_cast<double>(bar) * barWidth, 0.0, 1.0);
      light = mix(light, barColors[bar], covered);
    }
  }
  row[0] = barColors.back();
  return row;
}

}  // namespace

class TestPattern::Runs {
 public:
  struct Run {
    int x;
    int width;
  };

  /// The pixels from `first` to before `end`.
  void add(int first, int end) noexcept {
    if (first < end) runs_[count_++] = {first, end - first};
  }
  Runs without(int first, int end) const noexcept {
    Runs rest;
    for (const Run& run : *this) {
      rest.add(run.x, std::min(run.x + run.width, first));
      rest.add(std::max(run.x, end), run.x + run.width);
    }
    return rest;
  }

  const Run* begin() const noexcept { return runs_.data(); }
  const Run* end() const noexcept { return runs_.data() + count_; }

 private:
  // Two may be cut by the end of the row, and then each by what is taken out.
  std::array<Run, 2 * (mostEdges + 2)> runs_;
  std::size_t count_ = 0;
};

TestPattern::TestPattern(Size size, const std::string& qrText) : size_(size) {
  makeRows();
  findEdges();
  makeQr(qrText);
}

void TestPattern::makeRows() {
  const auto resting = restingRow(size_.width);
  const auto darkened = [&](double alpha) {
    Row row;
    row.reserve(resting.size() * 2);
    for (const auto& light : resting) row.push_back(pixel(mix(light, Light{0, 0, 0}, alpha)));
    row.insert(row.end(), row.begin(), row.begin() + size_.width);
    return row;
  };
  const double top = size_.height - size_.height * (bandY + bandHeight);
  const double bottom = size_.height - size_.height * bandY;
  bandTop_ = static_cast<int>(std::floor(top));
  bandBottom_ = static_cast<int>(std::ceil(bottom));
  bars_ = darkened(0);
  band_ = darkened(bandAlpha);
  bandTopEdge_ = darkened(bandAlpha * (bandTop_ + 1 - top));
  bandBottomEdge_ = darkened(bandAlpha * (bottom - (bandBottom_ - 1)));
}

void TestPattern::findEdges() {
  for (int x = 0; x < size_.width; ++x) {
    const auto here = static_cast<std::size_t>(x);
    const auto before = static_cast<std::size_t>(x == 0 ? size_.width - 1 : x - 1);
    if (bars_[here] != bars_[before]) edges_.push_back(x);
  }
}

void TestPattern::makeQr(const std::string& text) {
  const auto code = QrCode::encode(text);
  const double side = qrSideOfShorter * std::min(size_.width, size_.height);
  const int inner = static_cast<int>(std::lround(side));
  const int outer = inner + 2 * qrMargin;
  qrX_ = static_cast<int>(std::lround((size_.width - side) / 2)) - qrMargin;
  qrY_ = static_cast<int>(std::lround((size_.height - side) / 2)) - qrMargin;
  qr_ = std::make_unique<PixelBuffer>(Size{outer, outer}, true);
  Compositor::fill(qr_->span(), {255, 255, 255, 255});
  for (int y = 0; y < inner; ++y) {
    auto* const target = qr_->span().row(y + qrMargin) + qrMargin * 4;
    for (int x = 0; x < inner; ++x) {
      if (!code.isDark(x * code.side / inner, y * code.side / inner)) continue;
      std::memset(target + x * 4, 0, 3);
    }
  }
}

double TestPattern::captionSize() const noexcept { return size_.height * captionHeight; }

TestPattern::Letter TestPattern::letter(const GlyphMask& mask) {
  Letter result{nullptr, mask.left, mask.top, mask.advance};
  if (mask.width <= 0 || mask.height <= 0) return result;
  auto picture = std::make_shared<PixelBuffer>(Size{mask.width, mask.height});
  const auto span = picture->span();
  for (int y = 0; y < mask.height; ++y) {
    for (int x = 0; x < mask.width; ++x) {
      // White, premultiplied: all four channels are the coverage.
      const auto covered = mask.coverage[static_cast<std::size_t>(y * mask.width + x)];
      std::memset(span.row(y) + x * 4, covered, 4);
    }
  }
  result.picture = std::move(picture);
  return result;
}

void TestPattern::setLetters(const std::vector<GlyphMask>& text,
                             const std::vector<GlyphMask>& digits) {
  text_.clear();
  for (const auto& mask : text) text_.push_back(letter(mask));
  const auto count = std::min(digits.size(), digits_.size());
  for (std::size_t i = 0; i < count; ++i) digits_[i] = letter(digits[i]);
  measureCaption();
}

void TestPattern::measureCaption() {
  captionTop_ = size_.height;
  captionBottom_ = 0;
  const auto include = [this](const Letter& letter) {
    if (!letter.picture) return;
    const int top = static_cast<int>(baseline()) - letter.top;
    captionTop_ = std::min(captionTop_, top);
    captionBottom_ = std::max(captionBottom_, top + letter.picture->size().height);
  };
  std::ranges::for_each(text_, include);
  std::ranges::for_each(digits_, include);
}

long TestPattern::baseline() const noexcept {
  return std::lround(size_.height - size_.height * captionBaseline);
}

PixelRect TestPattern::code() const noexcept {
  return {qrX_, qrY_, qr_->size().width, qr_->size().height};
}

int TestPattern::offset(std::uint64_t number) const noexcept {
  const auto width = static_cast<std::size_t>(size_.width);
  return static_cast<int>(number % width * scrollPerFrame % width);
}

const TestPattern::Row& TestPattern::row(int y) const noexcept {
  if (y < bandTop_ || y >= bandBottom_) return bars_;
  if (y == bandTop_) return bandTopEdge_;
  return y == bandBottom_ - 1 ? bandBottomEdge_ : band_;
}

double TestPattern::drawLetter(const PixelSpan& target, const Letter& letter,
                               double pen) const noexcept {
  if (letter.picture) {
    Compositor::blend(letter.picture->view(), target,
                      static_cast<int>(std::lround(pen)) + letter.left,
                      static_cast<int>(baseline()) - letter.top, true);
  }
  return pen + letter.advance;
}

const std::uint32_t* TestPattern::row(int y, int offset) const noexcept {
  return row(y).data() + (size_.width - offset);
}

void TestPattern::draw(const PixelSpan& target, std::uint64_t number,
                       std::string_view time) const noexcept {
  if (target.size != size_) return;
  const auto rowBytes = static_cast<std::size_t>(size_.width) * 4;
  const int moved = offset(number);
  for (int y = 0; y < size_.height; ++y) std::memcpy(target.row(y), row(y, moved), rowBytes);
  // Whatever the picture's size, a code that does not fit is left out rather than cut.
  if (hasCode()) Compositor::copy(qr_->view(), target.part(code()));
  drawCaption(target, time);
}

void TestPattern::drawCaption(const PixelSpan& target, std::string_view time) const noexcept {
  double pen = size_.width * captionX;
  for (const auto& letter : text_) pen = drawLetter(target, letter, pen);
  for (const char character : time) {
    const auto index = captionDigits.find(character);
    if (index != std::string_view::npos) pen = drawLetter(target, digits_[index], pen);
  }
}

/// The pixels that get another colour when the bars have moved by `moved` and stand at `offset`
/// now: between each edge's old place and its new one.
TestPattern::Runs TestPattern::changedRuns(int offset, int moved) const noexcept {
  Runs runs;
  const int width = size_.width;
  for (std::size_t i = 0; i < edges_.size();) {
    const int first = edges_[i] - moved;
    // Edges that are closer together than they moved have one run.
    while (++i < edges_.size() && edges_[i] - moved <= edges_[i - 1]) {
    }
    const int length = edges_[i - 1] - first;
    const int x = (first + offset + width) % width;
    runs.add(x, std::min(x + length, width));
    runs.add(0, x + length - width);
  }
  return runs;
}

void TestPattern::redraw(const PixelSpan& target, std::uint64_t before, std::uint64_t number,
                         std::string_view time) const noexcept {
  if (target.size != size_) return;
  const int now = offset(number);
  const int moved = (now - offset(before) + size_.width) % size_.width;
  const PixelRect square = code();
  const bool far = moved * static_cast<int>(mostEdges) > size_.width;
  const bool captionOnCode =
      hasCode() && captionTop_ < square.y + square.height && square.y < captionBottom_;
  if (far || captionOnCode) return draw(target, number, time);

  const Runs changed = changedRuns(now, moved);
  const Runs besideCode = hasCode() ? changed.without(square.x, square.x + square.width) : changed;
  for (int y = 0; y < size_.height; ++y) {
    const auto* const source = row(y, now);
    auto* const place = target.row(y);
    if (y >= captionTop_ && y < captionBottom_) {
      std::memcpy(place, source, static_cast<std::size_t>(size_.width) * 4);
      continue;
    }
    const bool atCode = y >= square.y && y < square.y + square.height;
    for (const auto& run : atCode ? besideCode : changed)
      std::memcpy(place + std::ptrdiff_t{run.x} * 4, source + run.x,
                  static_cast<std::size_t>(run.width) * 4);
  }
  drawCaption(target, time);
}

}  // namespace lenslark
