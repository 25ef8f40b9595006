// Histograms as SVG, with axes, ticks and a legend.
#ifndef MDMSG_BAR_CHART_H
#define MDMSG_BAR_CHART_H

#include <cstdint>

#include <string>
#include <vector>

#include "messages/statistics.h"

namespace MD::tool {

struct BarChart {
  struct Bar {
    std::uint64_t value = 0;
    std::string text;  ///< what it counts
  };
  struct Tick {
    double share = 0;  ///< the part of the axis before it
    std::string label;
  };

  std::string title;
  std::string legend;  ///< what a bar is
  std::string xTitle;
  std::vector<Bar> bars;
  std::vector<Tick> ticks;
};

/// Messages by time.
BarChart rateChart(const RateHistogram& times, const TimeZone& zone);
/// Messages by size.
BarChart sizeChart(const SizeHistogram& sizes);

constexpr unsigned kChartWidth = 720;
constexpr unsigned kChartHeight = 290;

/// Appends the elements of a chart of this width and height. Their colours are those of the classes bar, grid and axis.
void appendChart(const BarChart& chart, std::string& out);

}  // namespace MD::tool

#endif
