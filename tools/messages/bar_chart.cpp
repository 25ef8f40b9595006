#include "messages/bar_chart.h"

#include <algorithm>
#include <limits>

#include "messages/statistics_text.h"

namespace MD::tool {
namespace {

// Room for labels of twice the usual size, which narrow pages have.
constexpr unsigned kLeft = 96;
constexpr unsigned kRight = kChartWidth - 20;
constexpr unsigned kTop = 60;
constexpr unsigned kBottom = kTop + 160;
constexpr std::uint64_t kMostTicks = 6;

/// The smallest of 1, 2, 5, 10, 20, 50, ... of which at most kMostTicks fit into `span`.
std::uint64_t roundStep(std::uint64_t span) {
  std::uint64_t step = 1;
  for (unsigned i = 0; span / step > kMostTicks; ++i) {
    step = i % 3 == 1 ? step / 2 * 5 : step * 2;
  }
  return step;
}

/// The same for time: round in hours, minutes and seconds.
std::uint64_t roundStepNs(std::uint64_t spanNs) {
  constexpr std::uint64_t kMs = 1'000'000;
  constexpr std::uint64_t kSecond = 1000 * kMs;
  constexpr std::uint64_t kMinute = 60 * kSecond;
  constexpr std::uint64_t kHour = 60 * kMinute;
  constexpr std::uint64_t kDay = 24 * kHour;
  for (const std::uint64_t unit : {kSecond, kMinute}) {
    if (spanNs / kMostTicks < unit) {
      break;
    }
    for (const std::uint64_t count : {1U, 2U, 5U, 10U, 15U, 30U}) {
      if (spanNs / (count * unit) <= kMostTicks) {
        return count * unit;
      }
    }
  }
  if (spanNs < kMostTicks * kSecond) {
    return kMs * roundStep(spanNs / kMs);
  }
  for (const std::uint64_t count : {1U, 2U, 3U, 6U, 12U}) {
    if (spanNs / (count * kHour) <= kMostTicks) {
      return count * kHour;
    }
  }
  return kDay * roundStep(spanNs / kDay);
}

/// "500", "20k", "5M".
std::string shortNumber(std::uint64_t number) {
  constexpr std::uint64_t kThousand = 1000;
  constexpr std::uint64_t kMillion = 1'000'000;
  return number != 0 && number % kMillion == 0    ? std::to_string(number / kMillion) + 'M'
         : number != 0 && number % kThousand == 0 ? std::to_string(number / kThousand) + 'k'
                                                  : std::to_string(number);
}

/// A time as precise as ticks with this distance need it.
std::string tickText(std::int64_t ns, std::uint64_t stepNs, const TimeZone& zone) {
  constexpr std::uint64_t kSecond = 1'000'000'000;
  std::string text = momentText(ns, zone);
  const std::size_t clock = text.find('T');
  if (clock == text.npos) {
    return text;
  }
  if (stepNs >= 86400 * kSecond) {
    return text.substr(0, clock);
  }
  return text.substr(clock + 1, stepNs >= 60 * kSecond ? 5 : stepNs >= kSecond ? 8 : 12);
}

void appendText(double x, unsigned y, const char* attributes, const std::string& text, std::string& out) {
  out += "  <text x=\"" + std::to_string(static_cast<unsigned>(x)) + "\" y=\"" + std::to_string(y) + "\"" + attributes +
         '>' + text + "</text>\n";
}

void appendLine(unsigned x1, unsigned y1, unsigned x2, unsigned y2, const char* name, std::string& out) {
  out += std::string("  <path class=\"") + name + "\" d=\"M" + std::to_string(x1) + ' ' + std::to_string(y1) + 'L' +
         std::to_string(x2) + ' ' + std::to_string(y2) + "\"/>\n";
}

}  // namespace

BarChart rateChart(const RateHistogram& times, const TimeZone& zone) {
  BarChart chart;
  chart.title = "Messages over time";
  if (times.isEmpty()) {
    return chart;
  }
  chart.legend = "messages per " + durationText(times.widthNs());
  chart.xTitle = "time, " + momentText(times.firstNs(), zone) + " to " + momentText(times.lastNs(), zone);
  for (std::size_t i = 0; i != times.counts().size(); ++i) {
    const std::uint64_t count = times.counts()[i];
    chart.bars.push_back({count, momentText(times.barBeginNs(i), zone) + ": " + std::to_string(count)});
  }
  // Times since the first bar, which is on the clock of the zone where the ticks are to be round.
  constexpr std::int64_t kNsPerSecond = 1'000'000'000;
  const std::int64_t beginNs = times.barBeginNs(0);
  const std::uint64_t spanNs = times.counts().size() * static_cast<std::uint64_t>(times.widthNs());
  const std::uint64_t stepNs = roundStepNs(spanNs);
  const std::int64_t eastNs = zone.secondsEast(beginNs / kNsPerSecond) * kNsPerSecond;
  const std::uint64_t past = (static_cast<std::uint64_t>(beginNs) + static_cast<std::uint64_t>(eastNs)) % stepNs;
  for (std::uint64_t at = past == 0 ? 0 : stepNs - past; at < spanNs; at += stepNs) {
    if (at > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - beginNs)) {
      break;
    }
    chart.ticks.push_back({static_cast<double>(at) / static_cast<double>(spanNs),
                           tickText(beginNs + static_cast<std::int64_t>(at), stepNs, zone)});
  }
  return chart;
}

BarChart sizeChart(const SizeHistogram& sizes) {
  constexpr std::size_t kMostBars = 60;
  BarChart chart;
  chart.title = "Messages by size";
  const auto bars = sizes.bars(kMostBars);
  if (bars.empty()) {
    return chart;
  }
  const std::uint64_t width = bars.size() == 1 ? bars[0].to - bars[0].from + 1 : bars[1].from - bars[0].from;
  chart.legend = width == 1 ? "messages per size" : "messages per " + std::to_string(width) + " bytes";
  chart.xTitle = "size in bytes";
  for (const auto& bar : bars) {
    chart.bars.push_back({bar.count, std::to_string(bar.from) + " to " + std::to_string(bar.to) +
                                         " bytes: " + std::to_string(bar.count)});
  }
  const std::uint64_t step = roundStep(bars.back().to - bars.front().from);
  const double span = static_cast<double>(width) * static_cast<double>(bars.size());
  for (std::uint64_t size = (bars.front().from + step - 1) / step * step; size <= bars.back().to; size += step) {
    chart.ticks.push_back({(static_cast<double>(size - bars.front().from) + 0.5) / span, std::to_string(size)});
  }
  return chart;
}

void appendChart(const BarChart& chart, std::string& out) {
  appendText(kLeft, 20, " class=\"title\"", chart.title, out);
  if (chart.bars.empty()) {
    appendText(kLeft, (kTop + kBottom) / 2, "", "no data", out);
    return;
  }
  out += "  <rect class=\"bar\" x=\"" + std::to_string(kLeft) + "\" y=\"34\" width=\"10\" height=\"10\"/>\n";
  appendText(kLeft + 16, 44, "", chart.legend, out);
  std::uint64_t most = 1;
  for (const auto& bar : chart.bars) {
    most = std::max(most, bar.value);
  }
  const std::uint64_t yStep = roundStep(most);
  const auto height = [&](std::uint64_t value) { return static_cast<unsigned>(scaled(value, kBottom - kTop, most)); };
  for (std::uint64_t value = 0; value <= most && value <= most - most % yStep; value += yStep) {
    const unsigned y = kBottom - height(value);
    appendLine(kLeft, y, kRight, y, "grid", out);
    appendText(kLeft - 8, y + 4, " text-anchor=\"end\"", shortNumber(value), out);
  }
  const double step = static_cast<double>(kRight - kLeft) / static_cast<double>(chart.bars.size());
  for (std::size_t i = 0; i != chart.bars.size(); ++i) {
    const auto x = kLeft + static_cast<unsigned>(step * static_cast<double>(i));
    const auto next = kLeft + static_cast<unsigned>(step * static_cast<double>(i + 1));
    // A bar that is not empty can be seen.
    const unsigned tall = chart.bars[i].value == 0 ? 0 : std::max(height(chart.bars[i].value), 1U);
    out += "  <rect class=\"bar\" x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(kBottom - tall) +
           "\" width=\"" + std::to_string(std::max(next - x, 2U) - 1) + "\" height=\"" + std::to_string(tall) +
           "\"><title>" + chart.bars[i].text + "</title></rect>\n";
  }
  appendLine(kLeft, kTop, kLeft, kBottom, "axis", out);
  appendLine(kLeft, kBottom, kRight, kBottom, "axis", out);
  for (std::size_t i = 0; i != chart.ticks.size(); ++i) {
    const auto x = kLeft + static_cast<unsigned>(chart.ticks[i].share * (kRight - kLeft));
    appendLine(x, kBottom, x, kBottom + 5, "axis", out);
    // At the ends the label stays within the picture. A narrow page shows every other label.
    const char* const anchor = x + 40 > kRight ? "end" : "middle";
    const std::string attributes =
        std::string(" text-anchor=\"") + anchor + (i % 2 == 0 ? "\"" : "\" class=\"second\"");
    appendText(x, kBottom + 24, attributes.c_str(), chart.ticks[i].label, out);
  }
  appendText((kLeft + kRight) / 2.0, kBottom + 54, " text-anchor=\"middle\" class=\"axis-title\"", chart.xTitle, out);
  out += "  <text transform=\"translate(20 " + std::to_string((kTop + kBottom) / 2) +
         ") rotate(-90)\" text-anchor=\"middle\" class=\"axis-title\">messages</text>\n";
}

std::string svgOf(const Statistics& statistics, const TimeZone& zone) {
  const std::string size = std::to_string(kChartWidth) + "\" height=\"" + std::to_string(2 * kChartHeight) + '"';
  std::string out = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size +
                    " font-family=\"sans-serif\" font-size=\"12\">\n"
                    "  <style>.bar{fill:#3465a4} .grid{stroke:#ddd} .axis{stroke:#000} text{fill:#000} "
                    ".title{font-weight:bold}</style>\n"
                    "  <rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  appendChart(rateChart(statistics.times, zone), out);
  out += "  <g transform=\"translate(0 " + std::to_string(kChartHeight) + ")\">\n";
  appendChart(sizeChart(statistics.sizes), out);
  return out + "  </g>\n</svg>\n";
}

}  // namespace MD::tool
