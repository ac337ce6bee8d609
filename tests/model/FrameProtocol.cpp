#include "FrameProtocol.h"

#include <algorithm>
#include <sstream>
#include <unordered_map>

namespace lenslark::model {
namespace {

constexpr std::array<const char*, cellCount> names{"front",  "sequence", "oldStamp", "seq0",
                                                   "stamp0", "first0",   "last0",    "seq1",
                                                   "stamp1", "first1",   "last1"};

Cell seqOf(unsigned slot) { return slot == 0 ? seq0 : seq1; }
Cell stampOf(unsigned slot) { return slot == 0 ? stamp0 : stamp1; }
Cell firstOf(unsigned slot) { return slot == 0 ? first0 : first1; }
Cell lastOf(unsigned slot) { return slot == 0 ? last0 : last1; }

enum class At : std::uint8_t {
  front,
  counter,
  frontAgain,
  stamp,
  first,
  last,
  counterAgain,
};

/// A reader in the middle of its work.
struct Reading {
  At at = At::front;
  std::uint8_t slot = 0;
  std::uint8_t counter = 0;
  std::uint8_t stamp = 0;
  std::uint8_t first = 0;
  std::uint8_t last = 0;
  std::uint8_t latest = 0;  ///< The frame that was taken before.

  friend bool operator==(const Reading&, const Reading&) = default;
};

struct State {
  std::uint16_t step = 0;                       ///< Of the writer.
  std::array<std::uint16_t, cellCount> seen{};  ///< The last step of each cell that others see.
  Reading reading;

  friend bool operator==(const State&, const State&) = default;
};

struct StateHash {
  std::size_t operator()(const State& state) const noexcept {
    std::size_t hash = state.step;
    const auto mix = [&hash](std::size_t value) {
      hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
      hash ^= hash >> 29U;
    };
    for (const auto value : state.seen) mix(value);
    const Reading& reading = state.reading;
    for (const std::uint8_t value :
         {static_cast<std::uint8_t>(reading.at), reading.slot, reading.counter, reading.stamp,
          reading.first, reading.last, reading.latest}) {
      mix(value);
    }
    return hash;
  }
};

class Explorer {
 public:
  Explorer(const Memory& start, const std::vector<Step>& writer, const Reader& reader,
           Stores stores)
      : start_(start), writer_(writer), reader_(reader), stores_(stores) {
    for (std::size_t step = 0; step < writer.size(); ++step) {
      if (writer[step].cell) storesTo_[*writer[step].cell].push_back(step + 1);
    }
  }

  Verdict run() {
    reach(State{}, nullptr);
    while (!pending_.empty() && !verdict_.torn) {
      const State* state = pending_.back();
      pending_.pop_back();
      advanceWriter(*state);
      deliverStores(*state);
      advanceReader(*state);
    }
    verdict_.states = known_.size();
    return verdict_;
  }

 private:
  /// Steps count from 1 here; 0 is the value that the cell began with.
  std::uint8_t load(const State& state, Cell cell) const {
    const std::uint16_t step = state.seen[cell];
    return step == 0 ? start_[cell] : writer_[step - 1U].value;
  }

  std::optional<std::uint16_t> nextStore(const State& state, Cell cell) const {
    const auto& steps = storesTo_[cell];
    const auto next = std::ranges::upper_bound(steps, std::size_t{state.seen[cell]});
    if (next == steps.end() || *next > state.step) return std::nullopt;
    return static_cast<std::uint16_t>(*next);
  }

  bool allDelivered(const State& state) const {
    for (std::uint8_t cell = 0; cell < cellCount; ++cell) {
      if (nextStore(state, static_cast<Cell>(cell))) return false;
    }
    return true;
  }

  void advanceWriter(const State& state) {
    if (state.step == writer_.size()) return;
    const Step& step = writer_[state.step];
    if (!step.cell && !allDelivered(state)) return;
    State next = state;
    ++next.step;
    if (step.cell && stores_ == Stores::atOnce) next.seen[*step.cell] = next.step;
    reach(next, &state);
  }

  void deliverStores(const State& state) {
    for (std::uint8_t cell = 0; cell < cellCount; ++cell) {
      const auto store = nextStore(state, static_cast<Cell>(cell));
      if (!store) continue;
      State next = state;
      next.seen[cell] = *store;
      reach(next, &state);
    }
  }

  void advanceReader(const State& state) {
    State next = state;
    Reading& reading = next.reading;
    const std::uint8_t latest = reading.latest;
    switch (reading.at) {
      case At::front:
        reading = {.slot = reader_.oldest ? std::uint8_t{0} : load(state, front), .latest = latest};
        reading.at = At::counter;
        break;
      case At::counter:
        reading.counter = load(state, counterCell(reading));
        reading.at = reader_.looksAtFrontTwice && !reader_.oldest ? At::frontAgain : At::stamp;
        if (reading.counter % 2 != 0) reading = {.latest = latest};
        break;
      case At::frontAgain:
        reading.at = At::stamp;
        if (load(state, front) != reading.slot) reading = {.latest = latest};
        break;
      case At::stamp:
        reading.stamp = load(state, reader_.oldest ? oldStamp : stampOf(reading.slot));
        reading.at = At::first;
        if (reading.stamp == 0) reading = {.latest = latest};  // no frame
        break;
      case At::first:
        reading.first = load(state, firstOf(reading.slot));
        reading.at = At::last;
        break;
      case At::last:
        reading.last = load(state, lastOf(reading.slot));
        if (reader_.looksAgain) {
          reading.at = At::counterAgain;
          break;
        }
        accept(next, state);
        break;
      case At::counterAgain:
        if (load(state, counterCell(reading)) == reading.counter) {
          accept(next, state);
        } else {
          reading = {.latest = latest};
        }
        break;
    }
    reach(next, &state);
  }

  Cell counterCell(const Reading& reading) const {
    return reader_.oldest ? sequence : seqOf(reading.slot);
  }

  /// The reader has taken what it holds for a frame.
  void accept(State& next, const State& state) {
    Reading& reading = next.reading;
    ++verdict_.accepted;
    const bool whole = reading.first == reading.stamp && reading.last == reading.stamp;
    if (!whole && !verdict_.torn) verdict_.torn = story(state, reading);
    if (whole && reading.stamp < reading.latest && !verdict_.backwards) {
      verdict_.backwards = story(state, reading);
    }
    reading = {.latest = reading.stamp};
  }

  void reach(const State& state, const State* from) {
    const auto [known, fresh] = known_.emplace(state, from);
    if (fresh) pending_.push_back(&known->first);
  }

  std::string story(const State& state, const Reading& reading) const {
    std::vector<std::string> lines;
    for (const State* at = &state; at != nullptr;) {
      const State* before = known_.at(*at);
      if (before != nullptr) lines.push_back(tell(*before, *at));
      at = before;
    }
    std::ostringstream text;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) text << *line << '\n';
    text << "taken: description " << int{reading.stamp} << ", pixels " << int{reading.first}
         << " and " << int{reading.last} << ", after " << int{reading.latest};
    return text.str();
  }

  std::string tell(const State& before, const State& now) const {
    std::ostringstream text;
    if (now.reading != before.reading) {
      text << "reader: step " << int(before.reading.at) << " of slot " << int{now.reading.slot};
    } else if (now.step != before.step) {
      const Step& step = writer_[before.step];
      text << "writer: " << (step.cell ? names[*step.cell] : "barrier");
      if (step.cell) text << " = " << int{step.value};
    } else {
      for (std::uint8_t cell = 0; cell < cellCount; ++cell) {
        if (now.seen[cell] != before.seen[cell]) text << "memory: " << names[cell];
      }
    }
    return text.str();
  }

  const Memory start_;
  const std::vector<Step>& writer_;
  const Reader reader_;
  const Stores stores_;
  std::array<std::vector<std::size_t>, cellCount> storesTo_;
  std::unordered_map<State, const State*, StateHash> known_;  ///< And where each was come from.
  std::vector<const State*> pending_;
  Verdict verdict_;
};

}  // namespace

void Writer::put(Cell cell, std::uint8_t value) {
  memory_[cell] = value;
  steps_.push_back({cell, value});
}

void Writer::putInOrder(Cell cell, unsigned value) {
  if (rules_.barriers) steps_.push_back({});
  put(cell, static_cast<std::uint8_t>(value & rules_.counterMask));
  if (rules_.barriers) steps_.push_back({});
}

void Writer::beginSlot(unsigned slot) {
  putInOrder(seqOf(slot), memory_[seqOf(slot)] | 1U);
  if (slot == 0) putInOrder(sequence, memory_[sequence] | 1U);
}

void Writer::paint(unsigned slot, std::uint8_t frame) {
  put(firstOf(slot), frame);
  put(lastOf(slot), frame);
}

void Writer::endSlot(unsigned slot, std::uint8_t stamp) {
  put(stampOf(slot), stamp);
  if (slot == 0) {
    put(oldStamp, stamp);
    putInOrder(sequence, memory_[sequence] + 1U);
  }
  putInOrder(seqOf(slot), memory_[seqOf(slot)] + 1U);
}

void Writer::write(std::uint8_t frame, bool still) {
  const unsigned target = 1U - memory_[front];
  beginSlot(target);
  paint(target, frame);
  endSlot(target, frame);
  putInOrder(front, target);
  if (!still || target != 1) return;
  beginSlot(0);
  paint(0, frame);
  endSlot(0, frame);
}

void Writer::giveUp(std::uint8_t frame) {
  const unsigned target = 1U - memory_[front];
  beginSlot(target);
  put(firstOf(target), frame);
  endSlot(target, 0);
}

void Writer::takeOver() {
  put(oldStamp, 0);
  put(stamp0, 0);
  put(stamp1, 0);
  put(front, 0);
  for (const Cell counter : {seq0, seq1, sequence}) {
    putInOrder(counter, (memory_[counter] & ~1U) + 2U);
  }
}

Verdict explore(const Memory& start, const std::vector<Step>& writer, const Reader& reader,
                Stores stores) {
  return Explorer(start, writer, reader, stores).run();
}

Memory after(Memory memory, const std::vector<Step>& steps, std::size_t count) {
  for (std::size_t step = 0; step < count; ++step) {
    if (steps[step].cell) memory[*steps[step].cell] = steps[step].value;
  }
  return memory;
}

}  // namespace lenslark::model
