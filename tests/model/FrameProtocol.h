#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lenslark::model {

/// What reader and writer of a frame file share, boiled down: a frame is one number, which stands
/// in its description and in each of its two pixels.
enum Cell : std::uint8_t {
  front,
  sequence,
  oldStamp,  ///< The description in the header, for the oldest readers.
  seq0,
  stamp0,
  first0,
  last0,
  seq1,
  stamp1,
  first1,
  last1,
  cellCount
};

using Memory = std::array<std::uint8_t, cellCount>;

/// A step of the writer: a store, or a barrier that lets nothing pass.
struct Step {
  std::optional<Cell> cell;
  std::uint8_t value = 0;
};

/// The writer's steps, as SharedFrameWriter takes them. A number of a frame is never 0.
class Writer {
 public:
  struct Rules {
    unsigned counterMask = 0xff;  ///< How far a counter counts before it starts at 0 again.
    bool barriers = true;
  };

  explicit Writer(const Memory& memory) : Writer(memory, Rules{}) {}
  Writer(const Memory& memory, Rules rules) : memory_(memory), rules_(rules) {}

  void write(std::uint8_t frame, bool still = false);
  /// A frame that could not be drawn to its end.
  void giveUp(std::uint8_t frame);
  /// What a new writer does first with a file that another one left.
  void takeOver();

  const std::vector<Step>& steps() const noexcept { return steps_; }

 private:
  void put(Cell cell, std::uint8_t value);
  void putInOrder(Cell cell, unsigned value);
  void beginSlot(unsigned slot);
  void paint(unsigned slot, std::uint8_t frame);
  void endSlot(unsigned slot, std::uint8_t stamp);

  Memory memory_;  ///< As this writer knows it.
  Rules rules_;
  std::vector<Step> steps_;
};

/// How a reader goes about it.
struct Reader {
  bool looksAgain = true;         ///< At the counter, after its copy.
  bool looksAtFrontTwice = true;  ///< Again after the counter.
  bool oldest = false;            ///< Knows the header's own description of slot 0 alone.
};

/// What may happen to a store on its way to the other process.
enum class Stores {
  atOnce,   ///< All see it when it is made.
  perCell,  ///< It may be overtaken by later stores elsewhere, until the next barrier.
};

struct Verdict {
  std::size_t states = 0;    ///< That were told apart.
  std::size_t accepted = 0;  ///< Of these, the ones in which a reader has just taken a frame.
  /// The interleaving that showed a torn frame, in words. Nothing when none does.
  std::optional<std::string> torn;
  /// The same for a frame that is older than one taken before it.
  std::optional<std::string> backwards;
};

/// Lets a reader, which takes frames again and again, and the writer's steps meet in every order
/// there is, or until one shows a torn frame.
Verdict explore(const Memory& start, const std::vector<Step>& writer, const Reader& reader,
                Stores stores);

/// A file just made.
constexpr Memory emptyFile() { return {}; }

/// The memory after the first `count` steps: a writer that died there.
Memory after(Memory memory, const std::vector<Step>& steps, std::size_t count);

}  // namespace lenslark::model
