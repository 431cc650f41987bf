#!/usr/bin/env python3
"""Tests of the report server's pages in a browser: pages_test.py PAGE_SERVER [unittest's arguments]"""
import json
import sys
import unittest
import xml.etree.ElementTree

from browser import Browser, PageServer

PROGRAM = sys.argv.pop(1)
COMPANIES = ["tokyo", "tohoku", "chubu", "kansai", "kyushu"]
TODAY = "2026-11-22"
TEXT = "return document.querySelector(arguments[0]).textContent"
ALL_TEXTS = "return [...document.querySelectorAll(arguments[0])].map((each) => each.textContent)"
READ_OUT = "return document.querySelector('.read-out').textContent"
# The cells of a table by the name of their column and the minute of their row.
TABLE = """
const table = document.getElementById(arguments[0]);
const names = [...table.querySelectorAll("thead th[data-name]")].map((each) => each.dataset.name);
return [...table.querySelectorAll("tbody tr")].map((row) => [Number(row.dataset.minute),
  Object.fromEntries([...row.querySelectorAll("td")].map((cell, i) => [names[i], cell.textContent]))]);"""
# Where the minute of a day lies in the chart that is shown.
PLACE = """
const probe = [...document.querySelectorAll(".probe")].find((each) => each.getBoundingClientRect().width > 0);
probe.scrollIntoView({ block: "center" });
const box = probe.getBoundingClientRect();
return [box.left + (box.width * (arguments[0] + 2)) / 1440, box.top + box.height / 2];"""
# A page's clock stands still, and goes on by so many seconds.
STAND_STILL = "const loadedAt = Date.now(); Date.now = () => loadedAt;"
PASS_TIME = "const later = Date.now() + arguments[0] * 1000; Date.now = () => later;"
END, LEFT, PAGE_UP = "\ue010", "\ue012", "\ue00e"


class PagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.servers = {}
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.browser.devtools("Page.addScriptToEvaluateOnNewDocument", source=STAND_STILL)
        cls.sample = cls.start("sample")
        cls.odd = cls.start("odd")

    @classmethod
    def start(cls, source):
        server = PageServer(PROGRAM, source)
        cls.addClassCleanup(server.close)
        return server

    def setUp(self):
        self.browser.set_window(1200)
        self.browser.set_language("")
        self.browser.take_requests()
        self.browser.take_log("browser")

    def open(self, server, path):
        self.browser.open(server.url + path)

    # What the API says of a series of today, by minute of the day.
    def series(self, server, company, kind, date=TODAY):
        status, _, body = server.get(f"/v1/series?company={company}&kind={kind}&from={date}&to={date}")
        self.assertEqual(status, 200)
        key = "value_percent" if kind == "usage_rate" else "value_mw"
        records = json.loads(body)["records"]
        return {int(each["start"][11:13]) * 60 + int(each["start"][14:16]): each[key] for each in records}

    def expect_column(self, table, name, values, form="{:,}"):
        shown = {minute: cells[name] for minute, cells in table if cells[name] != "–"}
        self.assertEqual(shown, {minute: form.format(value) for minute, value in values.items()})

    # After a click the browser may take a moment to begin with the next page.
    def expect_text(self, selector, text):
        self.browser.wait_until("const found = document.querySelector(arguments[0]);"
                                "return found && found.textContent.includes(arguments[1])", selector, text)

    def test_shows_every_value_of_the_source(self):
        for server, company in [(self.sample, "kansai"), (self.odd, "tokyo"), (self.odd, "chubu")]:
            self.open(server, f"/company/{company}?lang=en")
            hourly = self.browser.run(TABLE, "hourly")
            self.assertEqual([minute for minute, _ in hourly], [60 * hour for hour in range(24)])
            self.expect_column(hourly, "Forecast", self.series(server, company, "estimated_usage"))
            self.expect_column(hourly, "Actual", self.series(server, company, "actual_usage"))
            self.expect_column(hourly, "Supply", self.series(server, company, "supply"))
            self.expect_column(hourly, "Usage rate", self.series(server, company, "usage_rate"), "{:.1f}")
            if company != "chubu":
                self.expect_column(self.browser.run(TABLE, "instant"), "Demand",
                                   self.series(server, company, "instant_usage"))
        self.open(self.odd, "/company/tokyo?lang=en")
        self.expect_column(self.browser.run(TABLE, "instant"), "Solar", self.series(self.odd, "tokyo", "solar"))

    def test_shows_the_newest_demand_and_the_peaks_of_every_company(self):
        self.open(self.sample, "/?lang=en")
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('.card')].map((each) => each.id)"),
                         COMPANIES)
        for company in COMPANIES:
            text = self.browser.run(TEXT, f"#{company}")
            newest = max(self.series(self.sample, company, "instant_usage").items())
            self.assertIn(f"{newest[1]:,} MW at {newest[0] // 60}:{newest[0] % 60:02}", text)
            for kind in ["peak_demand", "peak_supply"]:
                for date in [TODAY, "2026-11-23"]:
                    [(minute, value)] = self.series(self.sample, company, kind, date).items()
                    self.assertIn(f"{value:,} MW{minute // 60}:00–{minute // 60 + 1}:00", text)

    def test_marks_what_is_missing_or_old(self):
        self.open(self.odd, "/?lang=en")
        self.assertIn("91.9 % Stable", self.browser.run(TEXT, "#tokyo"))
        self.assertNotIn("Not up to date", self.browser.run(TEXT, "#tokyo"))
        self.assertIn("Not up to date", self.browser.run(TEXT, "#tohoku"))
        self.assertIn("confirmed 12:00 (2 hours ago)", self.browser.run(TEXT, "#tohoku"))
        self.assertIn("Usage rate not known", self.browser.run(TEXT, "#chubu"))
        self.assertIn("7,000 MW mean of 13:00–14:00", self.browser.run(TEXT, "#chubu"))
        self.assertIn("Nothing received", self.browser.run(TEXT, "#kansai"))
        self.assertNotIn("0 MW", self.browser.run(TEXT, "#kansai"))
        self.assertIn("200.0 % Very tight", self.browser.run(TEXT, "#kyushu"))
        self.open(self.odd, "/company/kansai?lang=en")
        self.assertEqual(self.browser.run(ALL_TEXTS, ".empty"), ["There are no figures for this day yet."])

    def test_breaks_the_line_where_values_are_missing(self):
        self.open(self.odd, "/company/tokyo?lang=en")
        path = self.browser.run("return document.querySelector('.plot.wide .line.measured').getAttribute('d')")
        self.assertEqual(path.count("M"), 2)
        self.assertEqual(path.count("L"), 10 * 12 - 1 + 4 * 12 - 1)

    def test_speaks_the_language_of_the_browser_and_of_its_link(self):
        self.browser.set_language("ja,en;q=0.5")
        self.open(self.sample, "/company/tokyo?date=2026-11-20")
        self.assertEqual(self.browser.run("return document.documentElement.lang"), "ja")
        self.assertEqual(self.browser.run(TEXT, "h1"), "東京電力")
        self.browser.click("a.language")
        self.expect_text("h1", "Tokyo Electric Power")
        self.assertEqual(self.browser.run("return document.documentElement.lang"), "en")
        self.expect_text(".as-of", "20 November 2026")
        self.browser.click("a.home")
        self.expect_text("h1", "Electricity demand and supply")
        self.browser.set_language("")
        self.open(self.sample, "/")
        self.assertEqual(self.browser.run("return document.documentElement.lang"), "en")

    def test_leads_from_day_to_day(self):
        self.open(self.sample, "/?lang=en")
        self.browser.click("#chubu h2 a")
        self.expect_text("h1", "Chubu Electric Power")
        self.browser.click(".days a[rel=prev]")
        self.expect_text(".as-of", "Saturday, 21 November 2026")
        self.browser.click(".days a[rel=bookmark]")
        self.expect_text(".as-of", "Sunday, 22 November 2026")
        self.browser.click(".days a[rel=next]")
        self.expect_text(".as-of", "Monday, 23 November 2026")
        self.assertEqual(self.browser.run(ALL_TEXTS, ".days a[rel=next]"), [])
        self.browser.run("document.querySelector('#date').value = '2026-02-28'")
        self.browser.click(".days button")
        self.expect_text(".as-of", "28 February 2026")
        self.assertEqual(self.browser.run(TEXT, "h1"), "Chubu Electric Power")

    def test_is_light_or_dark_as_the_reader_wishes(self):
        colours = """const ground = getComputedStyle(document.body).backgroundColor;
                     const line = getComputedStyle(document.querySelector(".plot .line.measured")).stroke;
                     return [ground, line];"""
        self.open(self.sample, "/company/tokyo")
        self.assertEqual(self.browser.run(colours), ["rgb(244, 246, 249)", "rgb(21, 88, 176)"])
        self.browser.set_window(1200, "dark")
        self.assertEqual(self.browser.run(colours), ["rgb(14, 19, 25)", "rgb(125, 180, 255)"])

    def test_fits_a_narrow_window(self):
        for path in ["/", "/company/tokyo"]:
            for language in ["en", "ja"]:
                for server in [self.sample, self.odd]:
                    self.browser.set_window(360)
                    self.open(server, f"{path}?lang={language}")
                    self.browser.run("for (const each of document.querySelectorAll('details')) each.open = true")
                    self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), 360, path)
        shown = "return [...document.querySelectorAll('.plot')].map((each) => each.offsetWidth > 0)"
        self.assertEqual(self.browser.run(shown), [False, True])
        self.browser.set_window(1200)
        self.assertEqual(self.browser.run(shown), [True, False])

    def test_has_its_content_without_script(self):
        self.browser.allow_script(False)
        try:
            self.browser.devtools("Page.navigate", url=self.sample.url + "/company/tokyo?lang=en")
            self.browser.wait_until("return document.title.startsWith('Tokyo') && document.readyState === 'complete'")
            self.assertEqual(len(self.browser.run(TABLE, "hourly")), 24)
            self.assertEqual(self.browser.run(ALL_TEXTS, ".probe"), [])
            hidden = "return getComputedStyle(document.querySelector('.read-out')).display"
            self.assertEqual(self.browser.run(hidden), "none")
            self.browser.click("summary")
            self.assertTrue(self.browser.run("return document.querySelector('#instant').offsetHeight > 1000"))
        finally:
            self.browser.allow_script(True)

    def test_reads_the_chart_under_the_pointer(self):
        for width in [1200, 360]:
            self.browser.set_window(width)
            self.open(self.odd, "/company/tokyo?lang=en")
            self.assertIn("Point at the chart", self.browser.run(READ_OUT))
            self.browser.point(*self.browser.run(PLACE, 8 * 60 + 35))
            self.assertEqual(self.browser.run(READ_OUT), "8:35 · Demand 9,030 MW · Solar 1,234 MW · Wind 56 MW · "
                             "Forecast 9,500 MW · Actual 9,500 MW · Supply 10,000 MW · Usage rate 95.0 %")
            self.browser.point(*self.browser.run(PLACE, 20 * 60))
            self.assertEqual(self.browser.run(READ_OUT),
                             "20:00 · Forecast 9,500 MW · Actual – · Supply 10,000 MW · Usage rate 95.0 %")

    def test_reads_the_chart_with_the_keyboard(self):
        self.open(self.odd, "/company/tokyo?lang=en")
        self.browser.type(".plot.wide .probe", END)
        self.assertTrue(self.browser.run(READ_OUT).startswith("0:00 "))
        self.browser.type(".plot.wide .probe", END + LEFT)
        self.assertTrue(self.browser.run(READ_OUT).startswith("23:50 "))
        self.browser.type(".plot.wide .probe", PAGE_UP)
        self.assertTrue(self.browser.run(READ_OUT).startswith("23:55 "))
        probe = "return document.querySelector('.plot.wide .probe').getAttribute(arguments[0])"
        self.assertEqual(self.browser.run(probe, "role"), "slider")
        self.assertEqual(self.browser.run(probe, "aria-valuenow"), "1435")
        self.assertEqual(self.browser.run(probe, "aria-valuetext"), self.browser.run(READ_OUT))

    def test_tells_readers_who_do_not_see_it_what_it_is(self):
        self.open(self.sample, "/company/tokyo?lang=en")
        nodes = self.browser.devtools("Accessibility.getFullAXTree")["nodes"]
        named = {(each["role"]["value"], each["name"]["value"]) for each in nodes if "name" in each and "role" in each}
        self.assertIn(("slider", "Read the chart at a time"), named)
        self.assertIn(("image", "Demand and supply of Tokyo Electric Power on Sunday, 22 November 2026"), named)
        self.assertIn(("table", "Values by hour"), named)
        self.assertIn(("heading", "Tokyo Electric Power"), named)

    def test_shows_where_the_keyboard_is(self):
        self.open(self.sample, "/?lang=en")
        self.browser.type("body", "\ue004")  # the tab key
        focused = "return [document.activeElement.className, getComputedStyle(document.activeElement).outlineWidth]"
        self.assertEqual(self.browser.run(focused), ["skip", "3px"])
        self.assertTrue(self.browser.run("return document.activeElement.getBoundingClientRect().top >= 0"))
        self.browser.type(".skip", "\ue007")  # the enter key
        self.assertEqual(self.browser.run("return document.activeElement.tagName"), "MAIN")

    def test_renews_itself_and_keeps_what_the_reader_did(self):
        # Symptom: on a busy machine the page was renewed too early, for its clock went on while the test worked.
        server = PageServer(PROGRAM, "sample")
        self.addCleanup(server.close)
        self.open(server, "/company/tokyo?lang=en")
        self.browser.click("summary")
        self.browser.type(".plot.wide .probe", END + END)
        self.browser.run("window.isSamePage = true")
        rows = len(self.browser.run(TABLE, "instant"))
        server.order("advance 60")
        self.browser.run(PASS_TIME, 59)
        self.browser.run("document.dispatchEvent(new Event('visibilitychange'))")
        self.assertEqual(len(self.browser.run(TABLE, "instant")), rows)
        self.browser.run(PASS_TIME, 1)
        self.browser.wait_until("return document.querySelector('.plot').textContent.includes('Now 15:58')")
        self.assertEqual(len(self.browser.run(TABLE, "instant")), rows + 12)
        self.assertTrue(self.browser.run("return document.querySelector('details').open && window.isSamePage"))
        self.assertTrue(self.browser.run("return document.activeElement.matches('.plot.wide .probe')"))
        self.assertTrue(self.browser.run(READ_OUT).startswith("23:55 "))

    def test_pauses_while_the_page_is_hidden(self):
        self.open(self.sample, "/?lang=en")
        self.browser.take_requests()
        hide = "Object.defineProperty(document, 'hidden', { configurable: true, get: () => arguments[0] });"
        self.browser.run(hide.replace("arguments[0]", "true"))
        self.browser.run(PASS_TIME, 3600)
        self.browser.run("document.dispatchEvent(new Event('visibilitychange'))")
        self.assertEqual(self.browser.take_requests(), [])
        self.browser.run(hide.replace("arguments[0]", "false") + "document.querySelector('h1').textContent = 'old';")
        self.browser.run("document.dispatchEvent(new Event('visibilitychange'))")
        self.browser.wait_until("return document.querySelector('h1').textContent !== 'old'")

    def test_says_when_it_cannot_be_renewed(self):
        server = PageServer(PROGRAM, "odd")
        self.addCleanup(server.close)
        self.open(server, "/?lang=en")
        shown = "return document.querySelector('#renewal-failed').offsetHeight > 0"
        self.assertFalse(self.browser.run(shown))
        server.order("break")
        server.order("advance 1")
        self.browser.run(PASS_TIME, 61)
        self.browser.wait_until(shown)
        self.assertIn("91.9 % Stable", self.browser.run(TEXT, "#tokyo"))

    def test_requests_no_other_host_and_violates_no_policy(self):
        for server in [self.sample, self.odd]:
            for path in ["/", "/company/tokyo", "/company/kansai?lang=ja", "/company/kyushu?date=2026-11-23"]:
                self.open(server, path)
                self.browser.run(PASS_TIME, 61)
                self.browser.run("document.dispatchEvent(new Event('visibilitychange'))")
        addresses = self.browser.take_requests()
        # The browser draws its own controls with data addresses, and none of them reaches a network.
        own = (self.sample.url + "/", self.odd.url + "/", "data:")
        self.assertGreater(len(addresses), 20)
        self.assertEqual([each for each in addresses if not each.startswith(own)], [])
        self.assertEqual(self.browser.take_log("browser"), [])

    def test_runs_no_script_but_its_own(self):
        self.open(self.sample, "/")
        self.browser.run("""const script = document.createElement("script");
                            script.textContent = "window.isForeign = true";
                            document.body.append(script);
                            document.body.setAttribute("onclick", "window.isForeign = true");
                            document.body.click();""")
        self.assertIsNone(self.browser.run("return window.isForeign"))
        messages = [each["message"] for each in self.browser.take_log("browser")]
        self.assertTrue(all("Content Security Policy" in each for each in messages), messages)
        self.assertGreaterEqual(len(messages), 1)

    def test_takes_nothing_of_source_and_request_as_markup(self):
        hostile = PageServer(PROGRAM, "hostile")
        self.addCleanup(hostile.close)
        attack = "%22%3E%3Cimg%20src=x%20onerror=alert(1)%3E"
        for path in ["/", "/company/tokyo", f"/?lang={attack}", f"/company/tokyo?date={attack}", f"/company/{attack}",
                     f"/company/tokyo?date=2026-11-22&lang={attack}", f"/{attack}"]:
            self.open(hostile, path)
            foreign = "return document.querySelectorAll('img[src=x], [onerror]').length"
            self.assertEqual(self.browser.run(foreign), 0, path)

    def test_is_well_formed(self):
        for server in [self.sample, self.odd]:
            for path in ["/?lang=en", "/?lang=ja"] + [f"/company/{each}?lang=ja" for each in COMPANIES]:
                status, fields, body = server.get(path)
                self.assertEqual((status, fields["Content-Type"]), (200, "text/html; charset=utf-8"))
                root = xml.etree.ElementTree.fromstring(body.decode())
                ids = [each.get("id") for each in root.iter() if each.get("id")]
                self.assertEqual(len(ids), len(set(ids)), path)


if __name__ == "__main__":
    unittest.main(verbosity=2)
