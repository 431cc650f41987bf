#!/usr/bin/env python3
"""Runs nginx with docs/fleet-nginx.conf between machines and a report server, all on loopback.

    cache_test.py --nginx PROGRAM --faketime LIBRARY --reportd PROGRAM --amporasrv PROGRAM --amporactl PROGRAM
                  [unittest's arguments]

nginx is the real one, with a folder of its own and a clock that a test can put forward. The report server is a stand-in
where it has to be slow or to misbehave, and ampora-reportd elsewhere.
"""
import argparse
import concurrent.futures
import datetime
import email.utils
import http.client
import http.server
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "process"))
import programs
from programs import LIMIT, make_place, targets_of_a_pass, wait_until

CONFIGURATION = pathlib.Path(__file__).resolve().parents[2] / "docs" / "fleet-nginx.conf"
PROGRAMS = None  # what the command line says

REPORT = "/usage/tokyo/instant?date=2012-07-02&output=xml"
# As ampora-reportd sends them with a report of today.
TODAY = {"Cache-Control": "max-age=60, stale-while-revalidate=60, stale-if-error=600", "ETag": '"first"'}
MISSING = {"Cache-Control": "no-store"}
LONG_AFTER = 3600


class Answer:
    def __init__(self, status, headers=None, body=b""):
        self.status = status
        self.headers = dict(headers or {})
        self.body = body


def ask(port, target=REPORT, machine=1, method="GET", headers=None, sent=None):
    """One request over a connection of its own. machine: which of the addresses 127.0.0.1 to 127.0.0.254 asks; sent: is
    released when the request has been sent."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=LIMIT,
                                            source_address=(f"127.0.0.{machine}", 0))
    try:
        connection.request(method, target, headers=headers or {})
        if sent:
            sent.release()
        response = connection.getresponse()
        return Answer(response.status, response.getheaders(), response.read())
    finally:
        connection.close()


class Origin:
    """A report server that does what its handler says and counts. handler: (target, headers) -> Answer, or None to end
    the connection without one."""

    def __init__(self, handler):
        self.handler = handler
        self.requests = []  # (target, If-None-Match or None)
        origin = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                origin.requests.append((self.path, self.headers.get("If-None-Match")))
                answer = origin.handler(self.path, self.headers)
                if answer is None:
                    self.close_connection = True
                    return
                self.send_response_only(answer.status)
                for name, value in answer.headers.items():
                    self.send_header(name, value)
                if answer.status != 304:
                    self.send_header("Content-Length", str(len(answer.body)))
                self.end_headers()
                self.wfile.write(answer.body)

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            daemon_threads = True
            request_queue_size = 256

        self.server = Server(("127.0.0.1", 0), Handler)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.01})
        self.thread.start()

    def close(self):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()


def report(body=b"<power_report/>", headers=None):
    """A handler that serves this report of today, and 304 to whom has it."""
    answer = Answer(200, TODAY if headers is None else headers, body)

    def handle(_, request):
        if "ETag" in answer.headers and request.get("If-None-Match") == answer.headers["ETag"]:
            return Answer(304, answer.headers)
        return answer

    return handle


class Reportd(programs.Reportd):
    def __init__(self):
        super().__init__(PROGRAMS.reportd)

    def forward(self, target, headers):
        known = headers.get("If-None-Match")
        answer = ask(self.port, target, headers={"If-None-Match": known} if known else {})
        for name in ("Content-Length", "Connection", "Date", "Server"):
            answer.headers.pop(name, None)
        return answer


def any_report(target):
    """A report of the kind and day that a target names."""
    category, kind, day = re.fullmatch(r"/(usage|peak)/\w+/(\w+)\?date=([\d-]+)&output=xml", target).groups()
    if category == "peak":
        name = "peak_" + kind
        records = f'<{kind} start="{day}T14:00:00" end="{day}T15:00:00">5000</{kind}>'
    else:
        name = kind + "_usage"
        records = "".join(f'<usage datetime="{day}T{hour:02}:00:00" duration="3600">{4000 + hour}</usage>'
                          for hour in range(24))
    return f"<power_report><{name}>{records}</{name}></power_report>".encode()


class Machine:
    """A machine with AmporaSrv, which makes its passes when it is told to. Its address is 127.0.0.1."""

    def __init__(self, port):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ampora-machine-"))
        self.environment = make_place(self.folder, port, log_level=8)
        self.trace = open(self.folder / "trace", "w+", encoding="utf-8")
        self.process = subprocess.Popen([PROGRAMS.amporasrv], env=self.environment, stderr=self.trace)
        wait_until(lambda: self.passes() == 1)

    def passes(self):
        return (self.folder / "trace").read_text(encoding="utf-8").count("Next UpdateTimer Started")

    def make_pass(self):
        before = self.passes()
        subprocess.run([PROGRAMS.amporactl, "update"], env=self.environment, check=True, capture_output=True,
                       timeout=LIMIT)
        wait_until(lambda: self.passes() > before)

    def records(self):
        """What each data file holds behind its header."""
        return {path.name: path.read_bytes()[32:] for path in (self.folder / "data/AmporaSrv").iterdir()}

    def close(self):
        self.process.terminate()
        self.process.wait(LIMIT)
        self.trace.close()
        shutil.rmtree(self.folder)


class Cache:
    """nginx with the fleet's configuration in front of a port of loopback."""

    def __init__(self, origin_port, network="127.0.0.0/8"):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ampora-cache-"))
        self.folder.chmod(0o755)  # nginx's workers may be another user
        (self.folder / "temp").mkdir()
        self.log = self.folder / "error.log"
        with http.server.HTTPServer(("127.0.0.1", 0), None) as free:
            self.port = free.server_address[1]
        text = CONFIGURATION.read_text(encoding="utf-8")
        temporary = "".join(f" {name}_temp_path {self.folder}/temp/{name};"
                            for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        # The log tells when the cache manager has looked for what is to be deleted.
        for old, new in (("/run/nginx.pid", f"{self.folder}/pid"),
                         ("/var/log/nginx/error.log warn", f"{self.log} debug"),
                         ("/var/cache/nginx/ampora", f"{self.folder}/cache"), ("192.0.2.10:80", f"127.0.0.1:{self.port}"),
                         ("192.0.2.0/24", network), ("127.0.0.1:8470", f"127.0.0.1:{origin_port}"),
                         ("\nhttp {\n", f"\nhttp {{\n   {temporary}\n")):
            if text.count(old) != 1:
                raise ValueError(f"{CONFIGURATION} does not have {old!r} once")
            text = text.replace(old, new)
        (self.folder / "nginx.conf").write_text(text, encoding="utf-8")
        self.put_clock(0)
        self.start()

    def start(self):
        # The wall clock alone: it is what the cache goes by, while time-outs have a clock of their own.
        clock = {"FAKETIME_TIMESTAMP_FILE": str(self.folder / "clock"), "FAKETIME_NO_CACHE": "1",
                 "DONT_FAKE_MONOTONIC": "1"}
        self.process = subprocess.Popen(
            [PROGRAMS.nginx, "-p", self.folder, "-c", self.folder / "nginx.conf", "-e", self.log,
             "-g", "daemon off; " + "".join(f"env {name}; " for name in clock)],
            env={**os.environ, **clock, "LD_PRELOAD": PROGRAMS.faketime}, stderr=subprocess.DEVNULL)
        wait_until(self.listens)

    def listens(self):
        if self.process.poll() is not None:
            raise RuntimeError("nginx: " + self.log.read_text(errors="replace")[-1000:])
        try:
            ask(self.port, "/")
            return True
        except OSError:
            return False

    def put_clock(self, seconds):
        """So many seconds ahead of the machine's."""
        new = self.folder / "clock.new"
        new.write_text(f"+{seconds}\n")
        new.rename(self.folder / "clock")
        if seconds:
            wait_until(lambda: self.clock_ahead() > seconds - 5)

    def clock_ahead(self):
        date = email.utils.parsedate_to_datetime(dict(ask(self.port, "/", machine=254).headers)["Date"])
        return (date - datetime.datetime.now(datetime.timezone.utc)).total_seconds()

    def wait_for_manager(self):
        """Until the cache manager has looked through the whole list once more, by the present clock."""
        looks = self.manager_looks()
        wait_until(lambda: self.manager_looks() > looks + 1)

    def manager_looks(self):
        return self.log.read_text(errors="replace").count("http file cache expire\n")

    def close(self):
        self.process.terminate()
        self.process.wait(LIMIT)
        shutil.rmtree(self.folder)


class CacheTest(unittest.TestCase):
    def serve(self, handler):
        self.origin = Origin(handler)
        self.addCleanup(self.origin.close)
        self.put_cache_before(self.origin.port)

    def put_cache_before(self, port, **arguments):
        self.cache = Cache(port, **arguments)
        self.addCleanup(self.cache.close)

    def start_reportd(self):
        reportd = Reportd()
        self.addCleanup(reportd.kill)
        return reportd

    def ask(self, *arguments, **names):
        return ask(self.cache.port, *arguments, **names)

    def ask_in_parallel(self, count, target=REPORT, sent=None):
        start = threading.Barrier(count)

        def one(machine):
            start.wait(LIMIT)
            return self.ask(target, machine=machine, sent=sent)

        with concurrent.futures.ThreadPoolExecutor(count) as pool:
            return list(pool.map(one, range(1, count + 1)))

    def expect(self, answer, status, body=None, cache=None):
        self.assertEqual(answer.status, status)
        if body is not None:
            self.assertEqual(answer.body, body)
        if cache is not None:
            self.assertEqual(answer.headers["X-Cache-Status"], cache)


class WithAStandIn(CacheTest):
    def test_fifty_machines_at_once_cost_one_request(self):
        sent = threading.Semaphore(0)

        def answer_when_all_have_asked(target, request):
            for _ in range(50):
                sent.acquire(timeout=1)
            return report(b"one")(target, request)

        self.serve(answer_when_all_have_asked)
        for answer in self.ask_in_parallel(50, sent=sent):
            self.expect(answer, 200, b"one")
        self.assertEqual(len(self.origin.requests), 1)

    def test_a_fresh_report_is_not_asked_for_again(self):
        self.serve(report(b"one"))
        self.expect(self.ask(), 200, b"one", "MISS")
        self.cache.put_clock(30)
        for machine in range(1, 20):
            self.expect(self.ask(machine=machine), 200, b"one", "HIT")
        self.assertEqual(len(self.origin.requests), 1)

    def test_an_old_report_is_served_while_it_is_confirmed_by_its_tag(self):
        self.serve(report(b"one"))
        self.ask()
        self.cache.put_clock(90)
        self.expect(self.ask(), 200, b"one", "STALE")
        wait_until(lambda: len(self.origin.requests) == 2)
        self.assertEqual(self.origin.requests[1], (REPORT, '"first"'))
        wait_until(lambda: self.ask(machine=2).headers.get("X-Cache-Status") == "HIT")
        self.assertEqual(len(self.origin.requests), 2)

    def test_the_first_machine_of_a_morning_gets_no_report_of_the_evening(self):
        self.serve(report(b"evening"))
        self.ask()
        self.cache.put_clock(LONG_AFTER)
        self.origin.handler = report(b"morning", {**TODAY, "ETag": '"second"'})
        self.expect(self.ask(), 200, b"morning", "EXPIRED")

    def test_a_report_of_long_ago_is_confirmed_by_its_tag(self):
        self.serve(report(b"one"))
        self.ask()
        self.cache.put_clock(LONG_AFTER)
        self.expect(self.ask(), 200, b"one", "REVALIDATED")
        self.assertEqual(self.origin.requests[1], (REPORT, '"first"'))
        # nginx answers first and notes that the report is fresh again afterwards.
        wait_until(lambda: self.ask(machine=2).headers.get("X-Cache-Status") == "HIT")

    def test_an_answer_503_is_never_kept(self):
        self.serve(lambda *_: Answer(503, MISSING))
        for count in range(1, 4):
            self.expect(self.ask(), 503)
            self.assertEqual(len(self.origin.requests), count)
        self.origin.handler = report(b"one")
        self.expect(self.ask(), 200, b"one", "MISS")

    def test_an_answer_503_is_given_to_each_of_fifty_machines(self):
        self.serve(lambda *_: Answer(503, MISSING))
        for answer in self.ask_in_parallel(50):
            self.expect(answer, 503, b"")

    def test_an_answer_503_comes_before_the_last_report(self):
        # By it the server says that its figures are too old to be shown.
        self.serve(report(b"one"))
        self.ask()
        self.origin.handler = lambda *_: Answer(503, MISSING)
        self.cache.put_clock(LONG_AFTER)
        self.expect(self.ask(), 503)
        self.origin.handler = report(b"two", {**TODAY, "ETag": '"second"'})
        self.expect(self.ask(), 200, b"two")

    def test_an_answer_404_is_not_kept(self):
        self.serve(lambda *_: Answer(404))
        self.expect(self.ask(), 404)
        self.expect(self.ask(), 404)
        self.assertEqual(len(self.origin.requests), 2)

    def test_a_failing_server_leaves_the_last_good_report(self):
        self.serve(report(b"one"))
        self.ask()
        self.cache.put_clock(LONG_AFTER)
        for failure in (Answer(500), Answer(502), Answer(504), None):
            self.origin.handler = lambda *_, answer=failure: answer
            self.expect(self.ask(), 200, b"one", "STALE")

    def test_too_many_requests_of_one_machine_are_refused_by_429(self):
        self.serve(report(b"one"))
        statuses = [200]
        end = time.monotonic() + LIMIT
        while statuses[-1] == 200 and time.monotonic() < end:
            statuses.append(self.ask(machine=7).status)
        self.assertEqual(statuses[-1], 429)
        self.assertGreater(len(statuses), 2 * 42)
        self.expect(self.ask(machine=8), 200, b"one")

    def test_other_networks_are_refused(self):
        self.origin = Origin(report())
        self.addCleanup(self.origin.close)
        self.put_cache_before(self.origin.port, network="192.0.2.0/24")
        self.expect(self.ask(), 403)
        self.assertEqual(self.origin.requests, [])

    def test_only_reports_reach_the_server(self):
        self.serve(report())
        for target in ("/", "/metrics", "/company/tokyo", "/usage/tokyo", "/usage/tokyo/instant/more", "/v1/companies"):
            self.expect(self.ask(target), 404)
        self.expect(self.ask(method="POST"), 403)
        self.assertEqual(self.origin.requests, [])


class WithTheReportServer(CacheTest):
    def days(self):
        # The server's day is Japan's; yesterday and today there have reports of every kind, but for the first hour.
        japan = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(hours=9)
        return [(japan - datetime.timedelta(days=back)).date().isoformat() for back in (2, 1)]

    def test_fifty_machines_at_once_cost_one_request(self):
        reportd = self.start_reportd()
        self.serve(reportd.forward)
        target = targets_of_a_pass(self.days())[0]
        expected = ask(reportd.port, target).body
        for answer in self.ask_in_parallel(50, target):
            self.expect(answer, 200, expected)
        self.assertEqual(len(self.origin.requests), 1)

    def test_reports_are_confirmed_by_their_tags(self):
        reportd = self.start_reportd()
        statuses = []

        def forward(target, headers):
            answer = reportd.forward(target, headers)
            statuses.append(answer.status)
            return answer

        self.serve(forward)
        for target in targets_of_a_pass(self.days()):
            self.ask(target)
        self.cache.put_clock(2 * LONG_AFTER)
        for target in targets_of_a_pass(self.days()):
            self.expect(self.ask(target, machine=2), 200, ask(reportd.port, target).body, "REVALIDATED")
        self.assertEqual(statuses, [200] * 42 + [304] * 42)

    def test_an_hour_after_the_servers_end_each_machine_gets_its_last_reports(self):
        reportd = self.start_reportd()
        self.put_cache_before(reportd.port)
        targets = targets_of_a_pass(self.days())
        self.assertEqual(len(targets), 42)
        reports = [self.ask(target).body for target in targets]
        self.assertTrue(all(b"<power_report>" in body for body in reports))
        reportd.kill()
        self.cache.put_clock(2 * LONG_AFTER)  # the hour for which a closed day is fresh, and one more
        self.cache.wait_for_manager()
        for machine in range(1, 51):
            for target, body in zip(targets, reports):
                self.expect(self.ask(target, machine=machine), 200, body, "STALE")


class WithAMachine(CacheTest):
    def setUp(self):
        self.missing = False
        self.serve(lambda target, request: Answer(503, MISSING) if self.missing
                   else report(any_report(target))(target, request))
        self.machine = Machine(self.cache.port)
        self.addCleanup(self.machine.close)
        self.records = self.machine.records()
        self.assertEqual(len(self.records), 21)
        self.assertNotIn(b"", self.records.values())

    def test_a_failing_server_leaves_its_files_as_they_were(self):
        self.origin.handler = lambda *_: Answer(500)
        self.cache.put_clock(LONG_AFTER)
        asked = len(self.origin.requests)
        self.machine.make_pass()
        self.assertEqual(self.machine.records(), self.records)
        self.assertGreaterEqual(len(self.origin.requests), asked + 42)

    def test_a_refusal_leaves_its_files_as_they_were(self):
        # Of the limit itself a slow test machine might stay below.
        self.origin.handler = lambda *_: Answer(429)
        self.cache.put_clock(LONG_AFTER)
        self.expect(self.ask(machine=2), 429)
        asked = len(self.origin.requests)
        self.machine.make_pass()
        self.assertEqual(self.machine.records(), self.records)
        self.assertGreaterEqual(len(self.origin.requests), asked + 42)

    def test_a_missing_cache_leaves_its_files_as_they_were(self):
        self.cache.process.terminate()
        self.cache.process.wait(LIMIT)
        self.machine.make_pass()
        self.assertEqual(self.machine.records(), self.records)

    def test_an_answer_503_empties_its_files(self):
        self.missing = True
        self.cache.put_clock(LONG_AFTER)
        self.machine.make_pass()
        self.assertEqual(set(self.machine.records().values()), {b""})


def main():
    global PROGRAMS
    parser = argparse.ArgumentParser()
    for name in ("nginx", "faketime", "reportd", "amporasrv", "amporactl"):
        parser.add_argument("--" + name, required=True)
    PROGRAMS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
