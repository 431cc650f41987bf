// The style of a day's chart.
#pragma once

#include <string_view>

namespace chart {

// A style sheet, light or dark by prefers-color-scheme. Its colours are the custom properties --chart-*.
inline constexpr std::string_view kDayChartStyle = R"css(.day-chart {
  --chart-ground: #ffffff;
  --chart-text: #1d2733;
  --chart-quiet: #56616e;
  --chart-grid: #dfe4ea;
  --chart-axis: #8b95a1;
  --chart-measured: #1558b0;
  --chart-forecast: #a84300;
  --chart-supply: #0b6b4f;
  --chart-yesterday: #8b95a1;
  font: 12px system-ui, "Segoe UI", Roboto, "Noto Sans", "Noto Sans CJK JP", "Hiragino Sans", sans-serif;
  font-variant-numeric: tabular-nums;
}
@media (prefers-color-scheme: dark) {
  .day-chart {
    --chart-ground: #161c24;
    --chart-text: #e6ebf1;
    --chart-quiet: #a3afbc;
    --chart-grid: #2b3440;
    --chart-axis: #6f7b88;
    --chart-measured: #7db4ff;
    --chart-forecast: #ffab66;
    --chart-supply: #5fd0a5;
    --chart-yesterday: #77838f;
  }
}
.day-chart .ground { fill: var(--chart-ground); }
.day-chart text { fill: var(--chart-text); }
.day-chart .tick { fill: var(--chart-quiet); }
.day-chart .before { text-anchor: end; }
.day-chart .middle { text-anchor: middle; }
.day-chart .label { paint-order: stroke; stroke: var(--chart-ground); stroke-width: 4px; stroke-linejoin: round; }
.day-chart text.forecast { fill: var(--chart-forecast); }
.day-chart text.supply { fill: var(--chart-supply); }
.day-chart line, .day-chart path { fill: none; stroke-width: 1px; }
.day-chart .grid { stroke: var(--chart-grid); }
.day-chart .axis { stroke: var(--chart-axis); }
.day-chart .now { stroke: var(--chart-quiet); }
.day-chart .line { stroke-width: 2px; stroke-linecap: round; stroke-linejoin: round; }
.day-chart .yesterday { stroke: var(--chart-yesterday); stroke-width: 1.5px; opacity: .75; }
.day-chart line.supply, .day-chart path.supply { stroke: var(--chart-supply); }
.day-chart line.forecast, .day-chart path.forecast { stroke: var(--chart-forecast); }
.day-chart .line.forecast { stroke-dasharray: 5 4; }
.day-chart .line.measured { stroke: var(--chart-measured); stroke-width: 2.5px; }
.day-chart .peak { stroke-dasharray: 1 4; }
.day-chart .peak-hour { stroke-width: 4px; }
.day-chart .area { fill: var(--chart-measured); opacity: .12; stroke: none; }
)css";

} // namespace chart
