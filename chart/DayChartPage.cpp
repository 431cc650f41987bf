#include "chart/DayChartPage.h"

#include "chart/Markup.h"

namespace chart {
namespace {

constexpr std::string_view kPageStyle = R"css(
body { margin: 2rem auto; padding: 0 1rem; max-width: 60rem; font: 1rem system-ui, sans-serif;
  background: #ffffff; color: #1d2733; }
h1 { font-size: 1.3rem; }
figure { margin: 0; }
figcaption { margin-top: .5rem; color: #56616e; }
.day-chart { width: 100%; height: auto; }
@media (prefers-color-scheme: dark) {
  body { background: #161c24; color: #e6ebf1; }
  figcaption { color: #a3afbc; }
}
)css";

} // namespace

std::string DayChartPage(const DayCurves& curves, const DayLabels& labels)
{
    CMarkup html;
    html.Markup("<!DOCTYPE html>\n");
    html.Element("html", {{"lang", "en"}}, [&] {
        html.Element("head", {}, [&] {
            html.Empty("meta", {{"charset", "utf-8"}});
            html.Element("title", {}, labels.title);
            html.Empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
            html.Empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
            html.Element("style", {}, [&] { html.Markup(kPageStyle); });
        });
        html.Element("body", {}, [&] {
            html.Element("h1", {}, labels.title);
            html.Element("figure", {}, [&] {
                html.Markup(DayChartSvg(curves, labels, {.width = 960, .height = 400}));
                html.Element("figcaption", {}, labels.description);
            });
        });
    });
    return html.Written() + "\n";
}

} // namespace chart
