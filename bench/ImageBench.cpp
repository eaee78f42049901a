// Images through the decoder's process, beside the same libraries in this one in the same run. Wall
// time: what a host waits for is what counts here, wherever it is spent.
#include "bench/Icon.h"
#include "bench/Measurement.h"
#include "tests/images/DecoderProcesses.h"
#include "tests/images/PlainDrawing.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Image.h>

#include <benchmark/benchmark.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kvlbench {
namespace {

constexpr int kMenu = 100;

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(what);
}

void drawHere(const kvl::Data& data) {
  const auto picture = kvltest::plainPicture({data.data(), data.size()});
  if (!picture || picture->draw(kIconSide, kIconSide).empty()) fail("not drawn in process");
}

void draw(const kvl::Data& data) {
  const auto image = kvl::Image::imageWithData(data);
  if (!image) fail("no image");
  image->setSize({kIconSide, kIconSide});
  if (image->rasterised(1).empty()) fail("not drawn");
}

template <class Work>
double secondsOf(const Work& work) {
  const double start = wallSeconds();
  work();
  return wallSeconds() - start;
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// Both in turn; the first round warms both up. The medians count, since others use the machine too.
template <class Peer, class Subject>
void compare(benchmark::State& state, const Peer& peer, const Subject& subject) {
  std::vector<double> peers;
  std::vector<double> subjects;
  peer();
  subject();
  for ([[maybe_unused]] auto round : state) {
    peers.push_back(secondsOf(peer));
    subjects.push_back(secondsOf(subject));
    state.SetIterationTime(subjects.back());
  }
  const double peerTime = medianOf(peers);
  const double time = medianOf(subjects);
  state.counters["in_process_us"] = peerTime * 1e6;
  state.counters["median_us"] = time * 1e6;
  state.counters["ratio"] = time / peerTime;
}

using MakeIcon = kvl::Data (*)(unsigned number);

// Twenty, one after the other, as a menu that is shown needs them.
void laterIcon(benchmark::State& state, MakeIcon make) {
  constexpr int kIcons = 20;
  unsigned number = 0;
  const auto drawAll = [&](const auto& drawOne) {
    for (int i = 0; i < kIcons; ++i) drawOne(make(++number));
  };
  compare(state, [&] { drawAll(drawHere); }, [&] { drawAll(draw); });
}
BENCHMARK_CAPTURE(laterIcon, paths, icon)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(100);
BENCHMARK_CAPTURE(laterIcon, theme, themeIcon)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(300);

// A single one, for which the decoder has to be woken.
void laterIconAlone(benchmark::State& state, MakeIcon make) {
  unsigned number = 0;
  compare(state, [&] { drawHere(make(++number)); }, [&] { draw(make(++number)); });
}
BENCHMARK_CAPTURE(laterIconAlone, paths, icon)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(1000);
BENCHMARK_CAPTURE(laterIconAlone, theme, themeIcon)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(3000);

void drawMenuHere(MakeIcon make) {
  const auto drawShare = [make](unsigned first) {
    for (unsigned i = first; i < kMenu; i += 2) drawHere(make(i));
  };
  std::thread other([&] { drawShare(1); });
  drawShare(0);
  other.join();
}

struct Menu {
  std::atomic<int> missing = kMenu;
  std::atomic<int> drawn = 0;
  kvl::Semaphore done;

  void tick(bool isDrawn) {
    drawn += isDrawn ? 1 : 0;
    if (--missing == 0) done.signal();
  }
};

void drawMenu(MakeIcon make) {
  const auto menu = std::make_shared<Menu>();
  for (unsigned i = 0; i < kMenu; ++i) {
    kvl::Image::imageWithData(make(i), [menu](const std::shared_ptr<kvl::Image>& image) {
      if (!image) return menu->tick(false);
      image->setSize({kIconSide, kIconSide});
      kvl::Image::rasterise(
          image, 1, [menu, image](const kvl::Bitmap& bitmap) { menu->tick(!bitmap.empty()); });
    });
  }
  if (!menu->done.waitFor(std::chrono::seconds(60)) || menu->drawn != kMenu) {
    fail("a menu lacks icons");
  }
}

// Without waiting for any of them, beside two threads.
void menuOf100(benchmark::State& state, MakeIcon make) {
  compare(state, [make] { drawMenuHere(make); }, [make] { drawMenu(make); });
}
BENCHMARK_CAPTURE(menuOf100, paths, icon)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(40);
BENCHMARK_CAPTURE(menuOf100, theme, themeIcon)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(80);

// The same beside one thread, as a menu draws its icons that asks for one after the other.
void menuOf100InTurn(benchmark::State& state, MakeIcon make) {
  const auto drawInTurn = [make] {
    for (unsigned i = 0; i < kMenu; ++i) drawHere(make(i));
  };
  compare(state, drawInTurn, [make] { drawMenu(make); });
}
BENCHMARK_CAPTURE(menuOf100InTurn, paths, icon)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(40);
BENCHMARK_CAPTURE(menuOf100InTurn, theme, themeIcon)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(80);

// An icon after each worker's sudden end.
void replacement(benchmark::State& state) {
  draw(icon(0));
  std::vector<double> times;
  for ([[maybe_unused]] auto round : state) {
    for (const auto& process : kvltest::decoderProcesses()) {
      if (process.isWorker) kill(process.id, SIGKILL);
    }
    while (std::ranges::any_of(kvltest::decoderProcesses(), &kvltest::DecoderProcess::isWorker)) {
      std::this_thread::yield();
    }
    times.push_back(secondsOf([] {
      const auto image = kvl::Image::imageWithData(icon(1));
      static_cast<void>(image);
    }));
    state.SetIterationTime(times.back());
    draw(icon(2));
  }
  state.counters["median_ms"] = medianOf(times) * 1e3;
}
BENCHMARK(replacement)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

kvl::Data photo(int width, int height) {
  auto* const pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  if (pixbuf == nullptr) fail("no memory for the photo");
  auto* const pixels = gdk_pixbuf_get_pixels(pixbuf);
  const auto size = gdk_pixbuf_get_byte_length(pixbuf);
  std::uint32_t noise = 1;
  for (gsize i = 0; i < size; ++i) {
    noise = noise * 1'664'525 + 1'013'904'223;
    pixels[i] = static_cast<guchar>(i / 50'000 + (noise >> 29));
  }
  gchar* bytes = nullptr;
  gsize length = 0;
  if (!gdk_pixbuf_save_to_buffer(pixbuf, &bytes, &length, "jpeg", nullptr, "quality", "85",
                                 nullptr)) {
    fail("no JPEG");
  }
  g_object_unref(pixbuf);
  const auto data = kvl::Data::fromText({bytes, length});
  g_free(bytes);
  return data;
}

void drawPhotoHere(const kvl::Data& data) {
  auto* const stream =
      g_memory_input_stream_new_from_data(data.data(), static_cast<gssize>(data.size()), nullptr);
  auto* const pixbuf =
      gdk_pixbuf_new_from_stream_at_scale(stream, kIconSide, kIconSide, FALSE, nullptr, nullptr);
  if (pixbuf == nullptr) fail("no photo in process");
  g_object_unref(pixbuf);
  g_object_unref(stream);
}

// Of 50 megapixels, at 32 points.
void photo50MP(benchmark::State& state) {
  const auto data = photo(8660, 5774);
  if (!kvl::Image::imageWithData(data)) return state.SkipWithError("no image");
  state.counters["file_MiB"] = static_cast<double>(data.size()) / (1 << 20);
  compare(state, [&] { drawPhotoHere(data); }, [&] { draw(data); });
}
BENCHMARK(photo50MP)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// What the processes have in memory after all this; most of it is shared among them.
void residentMemory(benchmark::State& state) {
  draw(icon(0));
  for ([[maybe_unused]] auto round : state) state.SetIterationTime(1);
  const auto processes = kvltest::decoderProcesses();
  std::int64_t all = 0;
  for (const auto& process : processes) all += process.residentBytes;
  state.counters["processes"] = static_cast<double>(processes.size());
  state.counters["resident_MiB"] = static_cast<double>(all) / (1 << 20);
}
BENCHMARK(residentMemory)->UseManualTime()->Iterations(1);

}  // namespace
}  // namespace kvlbench

BENCHMARK_MAIN();
