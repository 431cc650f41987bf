#include "chart/DayChartStyle.h"
#include "server/page/Page.h"

#include <algorithm>
#include <array>

namespace reportd {
namespace {

constexpr std::string_view kOwnStyle = R"css(:root {
  color-scheme: light dark;
  --ground: #f4f6f9;
  --card: #ffffff;
  --text: #1d2733;
  --quiet: #56616e;
  --line: #dde3ea;
  --link: #1558b0;
  --bar: #e6ebf1;
  --notice-ground: #fff1cc;
  --notice-text: #5c4300;
  --stable-ground: #dcf2e8;
  --stable-text: #0a5740;
  --stable-bar: #17895f;
  --little-tight-ground: #fdefc3;
  --little-tight-text: #5f4600;
  --little-tight-bar: #c99700;
  --tight-ground: #ffe1cc;
  --tight-text: #7d2f00;
  --tight-bar: #d9610f;
  --very-tight-ground: #fddcdc;
  --very-tight-text: #8c1212;
  --very-tight-bar: #cc2b2b;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #0e1319;
    --card: #161c24;
    --text: #e6ebf1;
    --quiet: #a3afbc;
    --line: #2b3440;
    --link: #8fbfff;
    --bar: #2b3440;
    --notice-ground: #3a2f10;
    --notice-text: #ffe3a1;
    --stable-ground: #123528;
    --stable-text: #8fe3c0;
    --stable-bar: #3fbf8f;
    --little-tight-ground: #3a3110;
    --little-tight-text: #ffe08a;
    --little-tight-bar: #e0b43a;
    --tight-ground: #45270f;
    --tight-text: #ffc08f;
    --tight-bar: #f0883e;
    --very-tight-ground: #4a1a1c;
    --very-tight-text: #ffb3b3;
    --very-tight-bar: #f06464;
  }
}
*, *::before, *::after { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body {
  margin: 0 auto;
  max-width: 1160px;
  padding: 0 20px 40px;
  background: var(--ground);
  color: var(--text);
  font: 16px/1.5 system-ui, "Segoe UI", Roboto, "Noto Sans", "Noto Sans CJK JP", "Hiragino Sans", "Yu Gothic UI", sans-serif;
  font-variant-numeric: tabular-nums;
}
:lang(ja) body, body:lang(ja) { line-height: 1.65; }
a { color: var(--link); text-underline-offset: .15em; text-decoration-thickness: 1px; }
a:hover { text-decoration-thickness: 2px; }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; border-radius: 4px; }
main:focus { outline: none; }
h1 { margin: 28px 0 0; font-size: 1.75rem; line-height: 1.25; letter-spacing: -.01em; }
h2 { margin: 0; font-size: 1.125rem; line-height: 1.35; }
.as-of { margin: 4px 0 20px; color: var(--quiet); }
.remark { color: var(--quiet); font-size: .8125rem; }
.unseen { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); white-space: nowrap; }
.skip { position: absolute; left: 20px; top: -80px; padding: 8px 14px; background: var(--card); z-index: 1; }
.skip:focus { top: 8px; }
header.site {
  display: flex; justify-content: space-between; align-items: baseline; gap: 16px;
  padding: 14px 0; border-bottom: 1px solid var(--line); font-size: .9375rem;
}
.home { color: var(--text); font-weight: 600; text-decoration: none; }
.home:hover { text-decoration: underline; }
footer.site { margin-top: 40px; padding-top: 12px; border-top: 1px solid var(--line); color: var(--quiet); font-size: .8125rem; }
footer.site p { margin: 4px 0; max-width: 75ch; }
.notice { margin: 16px 0 0; padding: 10px 14px; border-radius: 8px; background: var(--notice-ground); color: var(--notice-text); }
[hidden] { display: none !important; }

.cards { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 340px), 1fr)); gap: 20px; }
.card { display: flex; flex-direction: column; padding: 20px; border: 1px solid var(--line); border-radius: 14px; background: var(--card); }
.card h2 a { color: inherit; text-decoration: none; }
.card h2 a:hover { text-decoration: underline; }
.headline { margin: 10px 0 8px; }
.headline .value { font-size: 2.125rem; font-weight: 650; line-height: 1.1; letter-spacing: -.02em; }
.rate { display: inline-flex; flex-wrap: wrap; align-items: center; gap: 4px 10px; }
.rate .value { white-space: nowrap; }
.rate.unknown { color: var(--quiet); }
.headline .unknown { font-size: 1.125rem; line-height: 2.08; }
.band { padding: 2px 10px; border-radius: 999px; font-size: .8125rem; font-weight: 600; line-height: 1.5; white-space: nowrap; }
.band.stable { background: var(--stable-ground); color: var(--stable-text); }
.band.little-tight { background: var(--little-tight-ground); color: var(--little-tight-text); }
.band.tight { background: var(--tight-ground); color: var(--tight-text); }
.band.very-tight { background: var(--very-tight-ground); color: var(--very-tight-text); }
.bar { display: block; width: 100%; height: 8px; border-radius: 4px; }
.bar .whole { fill: var(--bar); }
.bar.stable .used { fill: var(--stable-bar); }
.bar.little-tight .used { fill: var(--little-tight-bar); }
.bar.tight .used { fill: var(--tight-bar); }
.bar.very-tight .used { fill: var(--very-tight-bar); }
.card > .remark { margin: 4px 0 0; }
dl, dd { margin: 0; }
dt { color: var(--quiet); font-size: .8125rem; }
.now { margin: 14px 0 8px; }
.now .value { font-size: 1.125rem; font-weight: 600; }
.missing { color: var(--quiet); text-decoration: none; }
.card .day-chart { display: block; width: 100%; height: auto; }
.peaks { width: 100%; table-layout: fixed; margin-top: 12px; border-collapse: collapse; font-size: .875rem; }
.peaks th, .peaks td { padding: 7px 8px 7px 0; text-align: left; vertical-align: top; font-weight: 400; }
.peaks thead th, .peaks thead td { padding-bottom: 3px; }
.peaks thead th { color: var(--quiet); font-size: .8125rem; }
.peaks tbody th, .peaks tbody td { border-top: 1px solid var(--line); }
.peaks .value, .peaks .remark { display: block; white-space: nowrap; }
.peaks .remark { font-size: .75rem; }
.peaks tbody th { color: var(--quiet); font-size: .8125rem; line-height: 1.7; }
.peaks th:first-child, .peaks td:first-child { width: 34%; }
.peaks .rate { gap: 2px 8px; }
.peaks .band { padding: 0 7px; font-size: .6875rem; }
.freshness { margin: 0; color: var(--quiet); font-size: .8125rem; }
.card > .freshness:last-child { margin-top: auto; padding-top: 12px; }
.card > h2 + .freshness { margin-top: 8px; }
.card.stale .headline .value { color: var(--quiet); }
.mark { padding: 2px 8px; border-radius: 6px; background: var(--notice-ground); color: var(--notice-text); font-weight: 600; }

.days { display: flex; flex-wrap: wrap; align-items: center; gap: 8px 20px; margin-bottom: 10px; }
.days a[rel=prev]::before { content: "\2190\00a0"; }
.days a[rel=next]::after { content: "\00a0\2192"; }
.days form { display: flex; flex-wrap: wrap; align-items: center; gap: 8px; margin-left: auto; }
.days label { color: var(--quiet); font-size: .875rem; }
input, button { font: inherit; font-size: .9375rem; color: var(--text); background: var(--card); border: 1px solid var(--quiet); border-radius: 8px; padding: 4px 10px; }
button { cursor: pointer; }
.figures { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 200px), 1fr)); gap: 16px; margin: 20px 0; }
.figure { padding: 14px 18px; border: 1px solid var(--line); border-radius: 12px; background: var(--card); }
.figure .value { font-size: 1.375rem; font-weight: 650; letter-spacing: -.01em; white-space: nowrap; }
.figure .remark { display: block; }
.figure > dd > .missing { font-size: 1.375rem; }
.chart { margin: 0 0 28px; padding: 16px 18px; border: 1px solid var(--line); border-radius: 14px; background: var(--card); }
.plot { position: relative; }
.plot .day-chart { display: block; width: 100%; height: auto; }
.plot.narrow { display: none; }
.legend { display: flex; flex-wrap: wrap; gap: 4px 22px; margin: 0 0 10px; padding: 0; list-style: none; font-size: .875rem; }
.legend li::before { content: ""; display: inline-block; width: 24px; margin-right: 8px; vertical-align: .25em; border-top: 3px solid; }
.legend .measured::before { border-color: var(--measured); }
.legend .forecast::before { border-color: var(--forecast); border-top-style: dashed; border-top-width: 2px; }
.legend .supply::before { border-color: var(--supply); border-top-width: 2px; }
.legend .yesterday::before { border-color: var(--yesterday); border-top-width: 2px; }
.legend { --measured: #1558b0; --forecast: #a84300; --supply: #0b6b4f; --yesterday: #8b95a1; }
@media (prefers-color-scheme: dark) {
  .legend { --measured: #7db4ff; --forecast: #ffab66; --supply: #5fd0a5; --yesterday: #77838f; }
}
.probe { position: absolute; touch-action: pan-y; cursor: crosshair; }
.cursor { position: absolute; top: 0; bottom: 0; width: 0; border-left: 1px dashed var(--text); pointer-events: none; }
.read-out { min-height: 1.5em; margin: 8px 0 0; color: var(--quiet); font-size: .875rem; }
.read-out b { color: var(--text); }
.table { overflow-x: auto; border: 1px solid var(--line); border-radius: 14px; background: var(--card); }
.values { width: 100%; border-collapse: collapse; font-size: .9375rem; }
.values caption { padding: 14px 18px 6px; text-align: left; font-weight: 600; }
.values th, .values td { padding: 5px 18px; text-align: right; white-space: nowrap; }
.values th:first-child { text-align: left; }
.values th { font-weight: 400; }
.values thead th { color: var(--quiet); font-size: .8125rem; border-bottom: 1px solid var(--line); }
.values tbody tr:nth-child(even) { background: var(--ground); }
.download { display: flex; flex-wrap: wrap; gap: 4px 14px; margin: 10px 4px 28px; color: var(--quiet); font-size: .875rem; }
details { margin-bottom: 16px; }
summary { padding: 8px 4px; cursor: pointer; color: var(--link); }
.empty { margin: 32px 0; padding: 40px 20px; border: 1px dashed var(--quiet); border-radius: 14px; color: var(--quiet); text-align: center; }
@media (max-width: 640px) {
  body { padding: 0 14px 32px; }
  h1 { margin-top: 20px; font-size: 1.5rem; }
  .plot.wide { display: none; }
  .plot.narrow { display: block; }
  .chart { padding: 12px 8px; }
  .legend { padding: 0 6px; }
  .read-out { min-height: 4.5em; padding: 0 6px; }
  .days form { margin-left: 0; }
  .values th, .values td { padding: 5px 10px; }
  .figures { grid-template-columns: repeat(2, 1fr); gap: 10px; }
  .figure { padding: 10px 12px; }
  .figure .value { font-size: 1.125rem; }
}
)css";

constexpr auto kJoinedStyle = [] {
    std::array<char, kOwnStyle.size() + chart::kDayChartStyle.size()> joined{};
    const auto middle = std::copy(kOwnStyle.begin(), kOwnStyle.end(), joined.begin());
    std::copy(chart::kDayChartStyle.begin(), chart::kDayChartStyle.end(), middle);
    return joined;
}();

} // namespace

const std::string_view kPageStyle{kJoinedStyle.data(), kJoinedStyle.size()};

} // namespace reportd
