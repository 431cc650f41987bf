#include "server/page/Page.h"

namespace reportd {

// Everything that it shows comes from the page: names and values from the headings and cells of its tables.
const std::string_view kPageScript = R"js("use strict";
(() => {
  const kMinutes = 1440;
  const kStep = 5;

  // Reading the chart: a slider over the plot, whose value is a minute of the day.

  const clockOf = (minute) => `${Math.floor(minute / 60)}:${String(minute % 60).padStart(2, "0")}`;

  // The name and value of each cell in the row of this minute.
  const cellsAt = (table, minute) => {
    const row = table && table.querySelector(`tr[data-minute="${minute}"]`);
    if (!row) return [];
    const headings = table.querySelectorAll("thead th[data-name]");
    return [...row.querySelectorAll("td")].map((cell, i) => ({
      name: headings[i].dataset.name,
      value: cell.querySelector(".missing") ? cell.textContent : `${cell.textContent} ${headings[i].dataset.unit}`,
    }));
  };

  const readAt = (minute) => [
    ...cellsAt(document.getElementById("instant"), minute),
    ...cellsAt(document.getElementById("hourly"), minute - (minute % 60)),
  ];

  let readMinute = null;

  const watchPlot = (plot, figure) => {
    const svg = plot.querySelector("svg");
    const readOut = figure.querySelector(".read-out");
    const { width, height } = svg.viewBox.baseVal;
    const left = Number(svg.dataset.left) / width;
    const right = Number(svg.dataset.right) / width;
    const probe = document.createElement("div");
    const cursor = document.createElement("div");
    probe.className = "probe";
    probe.style.left = `${left * 100}%`;
    probe.style.right = `${(1 - right) * 100}%`;
    probe.style.top = `${(Number(svg.dataset.top) / height) * 100}%`;
    probe.style.bottom = `${(1 - Number(svg.dataset.bottom) / height) * 100}%`;
    probe.tabIndex = 0;
    for (const [name, value] of [["role", "slider"], ["aria-label", figure.dataset.readLabel], ["aria-valuemin", 0],
                                 ["aria-valuemax", kMinutes - kStep], ["aria-valuenow", 0], ["aria-valuetext", "0:00"]]) {
      probe.setAttribute(name, value);
    }
    cursor.className = "cursor";
    cursor.hidden = true;
    probe.append(cursor);
    plot.append(probe);

    const show = (minute) => {
      readMinute = Math.min(Math.max(minute - (minute % kStep), 0), kMinutes - kStep);
      const cells = readAt(readMinute);
      cursor.hidden = false;
      cursor.style.left = `${(readMinute / kMinutes) * 100}%`;
      readOut.replaceChildren();
      const time = document.createElement("b");
      time.textContent = clockOf(readMinute);
      readOut.append(time);
      for (const { name, value } of cells) readOut.append(` \u00b7 ${name} ${value}`);
      probe.setAttribute("aria-valuenow", readMinute);
      probe.setAttribute("aria-valuetext", readOut.textContent);
    };
    const minuteOf = (event) => {
      const box = probe.getBoundingClientRect();
      return Math.floor(((event.clientX - box.left) / box.width) * kMinutes);
    };
    const steps = { ArrowLeft: -kStep, ArrowDown: -kStep, ArrowRight: kStep, ArrowUp: kStep, PageDown: -60, PageUp: 60,
                    Home: -kMinutes, End: kMinutes };
    probe.addEventListener("pointermove", (event) => show(minuteOf(event)));
    probe.addEventListener("pointerdown", (event) => show(minuteOf(event)));
    probe.addEventListener("keydown", (event) => {
      if (!(event.key in steps) || event.ctrlKey || event.altKey || event.metaKey) return;
      event.preventDefault();
      show(readMinute === null ? 0 : readMinute + steps[event.key]);
    });
    if (readMinute !== null) show(readMinute);
  };

  const watchCharts = () => {
    for (const figure of document.querySelectorAll("figure.chart")) {
      figure.querySelector(".read-out").hidden = false;
      for (const plot of figure.querySelectorAll(".plot")) watchPlot(plot, figure);
    }
  };

  // Renewal: the same page again, of which the main part is taken over. Hidden pages are left alone.

  const nameOf = (element) => {
    if (!element) return null;
    if (element.id) return `#${element.id}`;
    const plot = element.closest(".plot");
    if (plot) return plot.classList.contains("wide") ? ".plot.wide .probe" : ".plot.narrow .probe";
    const address = element.getAttribute("href");
    return address ? `a[href="${CSS.escape(address)}"]` : element.tagName.toLowerCase();
  };

  const takeOver = (renewed) => {
    const main = document.querySelector("main");
    const opened = [...main.querySelectorAll("details[open]")].map((each) => each.id);
    const scrolled = [...main.querySelectorAll(".table")].map((each) => each.scrollLeft);
    const chosenDay = document.activeElement === document.getElementById("date") ? document.activeElement.value : "";
    const focused = main.contains(document.activeElement) ? nameOf(document.activeElement) : null;
    main.replaceWith(document.adoptNode(renewed.querySelector("main")));
    document.title = renewed.title;
    for (const id of opened) document.getElementById(id)?.setAttribute("open", "");
    document.querySelectorAll("main .table").forEach((each, i) => { each.scrollLeft = scrolled[i] ?? 0; });
    if (chosenDay) document.getElementById("date").value = chosenDay;
    watchCharts();
    if (focused) document.querySelector(`main ${focused}`)?.focus({ preventScroll: true });
  };

  const renew = async () => {
    const failed = document.getElementById("renewal-failed");
    try {
      const answer = await fetch(location.href, { cache: "no-cache" });
      const renewed = new DOMParser().parseFromString(await answer.text(), "text/html");
      if (!answer.ok || !renewed.querySelector("main")) throw new Error(`status ${answer.status}`);
      takeOver(renewed);
      failed.hidden = true;
    } catch {
      failed.hidden = false;
    }
  };

  let renewedAt = Date.now();

  const renewWhenDue = async () => {
    const interval = Number(document.querySelector("main").dataset.renewalSeconds) * 1000;
    if (interval === 0 || document.hidden || Date.now() - renewedAt < interval) return;
    renewedAt = Date.now();
    await renew();
  };

  watchCharts();
  document.addEventListener("visibilitychange", renewWhenDue);
  setInterval(renewWhenDue, 1000);
})();
)js";

const std::string_view kContentSecurityPolicy = "default-src 'none'; style-src 'self'; script-src 'self'; img-src "
                                                "'self' data:; connect-src 'self'; base-uri 'none'; "
                                                "form-action 'self'; frame-ancestors 'none'";

} // namespace reportd
