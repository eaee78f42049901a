// Templates against the calls of ICU that they cannot do without, in the same run.
#include "bench/Measurement.h"

#include <local/KVLEncodingLocale.h>

#include <benchmark/benchmark.h>
#include <unicode/datefmt.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>

#include <cstdlib>
#include <memory>

namespace kvlbench {
namespace {

constexpr int kRounds = 200;
constexpr double kMillisecondsSince1970 = 1714574096000;  // 2024-05-01T14:34:56Z

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  return text.toUTF8String(result);
}

// What a host would write by hand: formatters that it keeps, a zone that it never looks up again.
class KeptFormatters {
 public:
  [[nodiscard]] std::string date() const { return written(*date_, kMillisecondsSince1970); }
  [[nodiscard]] std::string time() const { return written(*time_, kMillisecondsSince1970); }

  [[nodiscard]] std::string duration() const {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Measure parts[] = {
        {icu::Formattable(std::int64_t{1}), icu::MeasureUnit::createHour(status), status},
        {icu::Formattable(std::int64_t{2}), icu::MeasureUnit::createMinute(status), status},
        {icu::Formattable(std::int64_t{5}), icu::MeasureUnit::createSecond(status), status}};
    icu::UnicodeString text;
    icu::FieldPosition position;
    return utf8(duration_.formatMeasures(parts, 3, text, position, status));
  }

 private:
  static std::string written(const icu::DateFormat& format, UDate moment) {
    icu::UnicodeString text;
    return utf8(format.format(moment, text));
  }

  UErrorCode status_ = U_ZERO_ERROR;
  const icu::Locale locale_{"en", "US"};
  const std::unique_ptr<icu::DateFormat> date_{icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kMedium, icu::DateFormat::kShort, locale_)};
  const std::unique_ptr<icu::DateFormat> time_{
      icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, locale_)};
  const icu::MeasureFormat duration_{locale_, UMEASFMT_WIDTH_WIDE, status_};
};

const kvl::Dictionary kDateEntry{
    {"find", "%D"}, {"type", "date time"}, {"date", "2024-05-01T14:34:56Z"}};
const kvl::Dictionary kTimeEntry{{"find", "%T"}, {"type", "time"}, {"seconds", 52496}};
const kvl::Dictionary kDurationEntry{{"find", "%L"}, {"type", "duration"}, {"seconds", 3725}};

template <class Work>
double timeOf(Work work) {
  const double start = cpuSeconds();
  for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(work());
  return cpuSeconds() - start;
}

// times_icu: what rendering costs in multiples of the calls.
template <class Peer>
void render(benchmark::State& state, Peer peer, std::string_view text, const kvl::Array& entries) {
  setenv("LC_ALL", "en_US.UTF-8", 1);
  const auto times = measure(
      state, [&] { return timeOf(peer); },
      [&] { return timeOf([&] { return KVLEncoding::stringWithLocales(text, entries); }); });
  state.counters["times_icu"] = times.subject / times.peer;
  state.counters["microseconds"] =
      times.subject * 1e6 / kRounds / static_cast<double>(state.iterations());
}

void dateTimeAndDuration(benchmark::State& state) {
  const KeptFormatters kept;
  render(
      state, [&] { return kept.date() + kept.time() + kept.duration(); },
      "Saved %D, opens %T, again in %L", kvl::Array{kDateEntry, kTimeEntry, kDurationEntry});
}
BENCHMARK(dateTimeAndDuration)->UseManualTime()->Unit(benchmark::kMillisecond);

void dateAlone(benchmark::State& state) {
  const KeptFormatters kept;
  render(state, [&] { return kept.date(); }, "Saved %D", kvl::Array{kDateEntry});
}
BENCHMARK(dateAlone)->UseManualTime()->Unit(benchmark::kMillisecond);

void timeAlone(benchmark::State& state) {
  const KeptFormatters kept;
  render(state, [&] { return kept.time(); }, "Opens %T", kvl::Array{kTimeEntry});
}
BENCHMARK(timeAlone)->UseManualTime()->Unit(benchmark::kMillisecond);

void durationAlone(benchmark::State& state) {
  const KeptFormatters kept;
  render(state, [&] { return kept.duration(); }, "Again in %L", kvl::Array{kDurationEntry});
}
BENCHMARK(durationAlone)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kvlbench
