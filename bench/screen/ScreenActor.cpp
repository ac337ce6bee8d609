// The parts that bench_screen.py plays with. Each runs until its standard input ends:
//   film display WIDTH HEIGHT | film area X Y W H WIDTH HEIGHT     prints the number of its frames
//   move COUNT          windows that move at 60 steps a second
//   blink               a window of 100 x 30 that changes its colour as often
//   latency ROUNDS      prints, for each change of a window, the seconds until a feed has it
//   follow ROUNDS MOVES prints the CPU seconds of its own of asking once where a window is

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "feeds/FeedOutput.h"
#include "graphics/PixelBuffer.h"
#include "platform/linux/XcbScreen.h"
#include "support/XPainter.h"

namespace {

using namespace lenslark;
using namespace std::chrono_literals;
using Words = std::vector<std::string>;

void untilInputEnds() {
  for (std::string line; std::getline(std::cin, line);) {
  }
}

int number(const Words& words, std::size_t index) { return std::stoi(words.at(index)); }

void film(const Words& words) {
  XcbScreen screen;
  std::atomic<long> frames = 0;
  const auto onFrame = [&](const FramePtr&) { ++frames; };
  const auto onStop = [](const Error& error) { std::cerr << error.what() << '\n'; };
  std::unique_ptr<ScreenStream> stream;
  if (words.at(1) == "display") {
    stream =
        screen.captureDisplay(screen.content().displays.at(0).id,
                              {{number(words, 2), number(words, 3)}, 30, true}, onFrame, onStop);
  } else {
    const PixelRect area{number(words, 2), number(words, 3), number(words, 4), number(words, 5)};
    stream = screen.captureArea(area, {{}, {"qemu-system"}, {}},
                                {{number(words, 6), number(words, 7)}, 30, true}, onFrame, onStop);
  }
  untilInputEnds();
  stream.reset();
  std::cout << frames << '\n';
}

/// Does something sixty times a second until the input ends.
void repeatedly(const std::function<void(int)>& step) {
  std::jthread worker([&](const std::stop_token& stop) {
    auto next = std::chrono::steady_clock::now();
    for (int number = 0; !stop.stop_requested(); ++number) {
      step(number);
      next += 16'667us;
      std::this_thread::sleep_until(next);
    }
  });
  untilInputEnds();
}

void move(const Words& words) {
  XPainter painter;
  painter.paintRoot(0x304050);
  std::vector<xcb_window_t> windows;
  for (int index = 0; index < number(words, 1); ++index) {
    windows.push_back(painter.window({100 + index * 150, 100 + index * 60, 400, 300},
                                     0x102030U * static_cast<std::uint32_t>(index + 1)));
  }
  repeatedly([&](int step) {
    for (std::size_t index = 0; index < windows.size(); ++index) {
      const int phase = step * 5 + static_cast<int>(index) * 190;
      painter.move(windows[index], phase % 1500, 100 + phase / 3 % 650);
    }
  });
}

void blink() {
  XPainter painter;
  painter.paintRoot(0x304050);
  painter.window({0, 0, 1920, 1080}, 0x203040);
  const auto window = painter.window({300, 300, 100, 30}, 0xFFFFFF);
  repeatedly([&](int step) {
    painter.fill(window, {0, 0, 100, 30}, step % 2 == 0 ? 0x00FF00 : 0x0000FF);
  });
}

/// The blue of the pixel in the middle of a frame's upper left quarter.
int blueOf(const Frame& frame) {
  const PixelView view = frame.pixelBuffer()->view();
  return view.row(view.size.height / 4)[static_cast<std::ptrdiff_t>(view.size.width / 4) * 4];
}

void latency(const Words& words) {
  XPainter painter;
  const auto window = painter.window({0, 0, 960, 540}, 0);
  painter.movePointer(1900, 1000);
  FeedOutput feed("/tmp/screen-actor-" + std::to_string(::getpid()) + ".shm", LLCameraDevice, 2048);

  std::mutex mutex;
  std::condition_variable arrived;
  int shown = -1;
  XcbScreen screen;
  const auto stream = screen.captureArea(
      {0, 0, 1920, 1080}, {{}, {"qemu-system"}, {}}, {{1280, 720}, 30, true},
      [&](const FramePtr& frame) {
        feed.deliver(frame, ContentKind::live);
        const std::lock_guard lock(mutex);
        shown = blueOf(*frame);
        arrived.notify_all();
      },
      [](const Error& error) { std::cerr << error.what() << '\n'; });
  for (int round = 0; round < number(words, 1); ++round) {
    // Long enough for the next frame to be due, and never in step with anything.
    std::this_thread::sleep_for(60ms + std::chrono::microseconds(std::rand() % 30'000));
    const int colour = round % 2 == 0 ? 200 : 100;
    const auto begin = std::chrono::steady_clock::now();
    painter.fill(window, {0, 0, 960, 540}, static_cast<std::uint32_t>(colour));
    std::unique_lock lock(mutex);
    if (!arrived.wait_for(lock, 5s, [&] { return std::abs(shown - colour) < 8; })) std::exit(1);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::cout << took.count() << '\n';
  }
  ::unlink(feed.path().c_str());
}

double cpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void follow(const Words& words) {
  XPainter painter;
  const auto window = painter.window({0, 0, 300, 300}, 0xFFFFFF);
  XcbScreen screen;
  const bool moves = number(words, 2) != 0;
  screen.windowBounds(window);
  double spent = 0;
  for (int round = 0; round < number(words, 1); ++round) {
    if (moves) painter.move(window, round % 500, 20);
    std::this_thread::sleep_for(5ms);
    const double before = cpuSeconds();
    const auto bounds = screen.windowBounds(window);
    const auto displays = screen.displays();
    spent += cpuSeconds() - before;
    if (!bounds || displays.empty()) std::exit(1);
  }
  std::cout << spent / number(words, 1) << '\n';
}

}  // namespace

int main(int count, char** arguments) {
  const Words words(arguments + 1, arguments + count);
  const std::string role = words.empty() ? "" : words.front();
  if (role == "film") {
    film(words);
  } else if (role == "move") {
    move(words);
  } else if (role == "blink") {
    blink();
  } else if (role == "latency") {
    latency(words);
  } else if (role == "follow") {
    follow(words);
  } else {
    std::cerr << "which role?\n";
    return 2;
  }
}
