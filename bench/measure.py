#!/usr/bin/python3
"""Measures amporasrv and what could do its work instead, and prints the figures as Markdown.

    measure.py --programs FOLDER --tools FOLDER --faketime LIBRARY [option...]

FOLDER of the programs: amporasrv and ampora-reportd; of the tools: bare_parse. Everything runs on this machine; the
report server's clock is two days ahead, so that every report that a pass asks for is there and complete. A run whose
answers or files are not what they should be is no measurement: it ends with exit status 1.
"""
import argparse
import contextlib
import ctypes
import datetime
import http.server
import json
import os
import pathlib
import re
import select
import shutil
import signal
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "testing/process"))
from programs import LIMIT, Reportd, make_place, targets_of_a_pass, wait_until

FILES = 21
REQUESTS = 42  # of a pass, two days of each
NUMBERS = {"instant": 1, "actual": 2, "estimated": 4, "supply": 8, "demand": 16}
PAGE_KIB = 4
OPTIONS = None  # what the command line says


@contextlib.contextmanager
def on_processor(number):
    """What is started here runs on that processor."""
    before = os.sched_getaffinity(0)
    if OPTIONS.pin:
        os.sched_setaffinity(0, {number})
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


class Run:
    """A program on the measured processor."""

    def __init__(self, command, environment=os.environ):
        command = [str(word) for word in command]
        silent = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)]
        with on_processor(1):
            self.pid = os.posix_spawnp(command[0], command, environment, file_actions=silent)
        self.name = command[0]

    def wait(self):
        """Waits for its end: the processor time of it and its children, in seconds."""
        _, status, usage = os.wait4(self.pid, 0)
        self.pid = None
        if status != 0:
            raise RuntimeError(f"{self.name} has ended with status {status}")
        return usage.ru_utime + usage.ru_stime

    def kill(self):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)


class Service:
    """amporasrv with a place of its own. Starts as often as it is told to."""

    def __init__(self, stack, folder, port):
        self.folder = folder
        folder.mkdir()
        self.environment = make_place(folder, port, log_level=0)
        self.data = folder / "data/AmporaSrv"
        self.expected = None  # records in all
        stack.callback(lambda: self.run.kill())
        self.spawn()
        last = self.data / "kyushu_00000010.dat"  # a pass writes it last
        wait_until(last.exists)
        self.rest()
        libc = ctypes.CDLL(None, use_errno=True)
        self.watch = libc.inotify_init1(os.O_CLOEXEC)
        if libc.inotify_add_watch(self.watch, os.fsencode(last), 8) < 0:  # IN_CLOSE_WRITE
            raise OSError(ctypes.get_errno(), "cannot watch a data file")
        stack.callback(os.close, self.watch)
        # Settings of the last seconds are read at each use, which is not what a program does all day.
        changed = (folder / "machine/AmporaSrv/settings.reg").stat().st_ctime
        wait_until(lambda: time.time() > changed + 4)

    def spawn(self, *wrapper):
        self.run = Run([*wrapper, OPTIONS.programs / "amporasrv"], self.environment)

    def start(self, *wrapper):
        self.spawn(*wrapper)
        self.await_pass()

    def end(self):
        os.kill(self.run.pid, signal.SIGTERM)
        return self.run.wait()

    def await_pass(self):
        if not select.select([self.watch], [], [], LIMIT)[0]:
            raise TimeoutError("a pass did not end")
        os.read(self.watch, 4096)

    def make_pass(self):
        """The seconds from the event to the end of the last file."""
        event = os.open(self.folder / "run/AmporaSrv/AmporaSrvUpdateEvent", os.O_WRONLY | os.O_NONBLOCK)
        begin = time.perf_counter()
        os.write(event, b"x")
        os.close(event)
        self.await_pass()
        return time.perf_counter() - begin

    def processor_time(self):
        return time.clock_gettime(~self.run.pid << 3 | 2)  # clock_getcpuclockid

    def threads(self):
        """What the system says of each."""
        return [(task / "status").read_text() for task in pathlib.Path(f"/proc/{self.run.pid}/task").iterdir()]

    def switches(self):
        """How often its threads have gone to sleep or lost the processor."""
        return sum(int(number) for text in self.threads() for number in re.findall(r"ctxt_switches:\s+(\d+)", text))

    def rest(self):
        """Waits until it does nothing."""
        seen = [None]

        def is_still():
            time.sleep(0.01)
            seen[:] = [*seen[-1:], self.switches()]
            return seen[0] == seen[1] and all("State:\tS" in text for text in self.threads())

        wait_until(is_still)

    def private_kib(self):
        """What it has written. Its private clean pages are those of files that happen to be used by nobody else."""
        text = pathlib.Path(f"/proc/{self.run.pid}/smaps_rollup").read_text()
        return int(re.search(r"Private_Dirty:\s+(\d+)", text)[1])

    def records(self):
        """Of each file. The number of all changes by one or two of a kind while a measurement lasts."""
        files = {path.name: path.read_bytes()[32:] for path in self.data.iterdir()}
        if len(files) != FILES or not all(files.values()) or abs(count(files) - (self.expected or count(files))) > FILES:
            raise RuntimeError("a pass has not written all files, or not all records")
        return files


def count(files):
    return sum(len(content) // 40 for content in files.values())


# The alternatives. Each makes one pass: its processor time and its duration.

def timed(*commands):
    begin = time.perf_counter()
    used = 0
    for command in commands:
        run = Run(command, {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")})
        try:
            used += run.wait()
        finally:
            run.kill()
    return used, time.perf_counter() - begin


def with_curl(port, folder):
    return timed([ROOT / "bench/alternatives/with_curl.sh", f"127.0.0.1:{port}", folder])


def with_requests(port, folder):
    return timed([ROOT / "bench/alternatives/with_requests.py", f"127.0.0.1:{port}", folder])


def floor(port, folder):
    now = datetime.datetime.now()
    days = [(now + datetime.timedelta(hours=hours)).date() for hours in (-12, 12)]
    reports = [folder / f"{number}.xml" for number in range(REQUESTS)]
    addresses = [f"http://127.0.0.1:{port}{target}" for target in targets_of_a_pass(days)]
    (folder / "addresses").write_text("".join(f'url="{address}"\noutput="{report}"\n'
                                              for address, report in zip(addresses, reports, strict=True)))
    return timed(["curl", "--silent", "--fail", "--fail-early", "--config", folder / "addresses"],
                 [OPTIONS.tools / "bare_parse", *reports])


def lines_of(name, records):
    """The records of a data file as with_curl.sh writes them."""
    for value, *times in struct.iter_unpack("<Q8H8H", records):
        start, end = (datetime.datetime(*(times[at + field] for field in (0, 1, 3, 4, 5, 6))) for at in (0, 8))
        code = int(name[-6:-4], 16)
        second = end.isoformat() if code >= 8 else int((end - start).total_seconds())
        yield f"{start.isoformat()} {second} {value}\n"


def verify(service, port, folders):
    """Whether all three make the same records of the reports. Again when these were not asked for all within the same five
    minutes: in between, and in their first second, other records lie in the time that is kept."""
    for _ in range(3):
        begin = int(time.time())
        service.make_pass()
        with_curl(port, folders["curl"])
        with_requests(port, folders["requests"])
        if begin % 300 and begin // 300 == int(time.time()) // 300:
            break
    service.expected = count(service.records())
    for name, records in service.records().items():
        company, code = name[:-4].split("_")
        kind = next(kind for kind, number in NUMBERS.items() if number == int(code, 16))
        if (folders["requests"] / name).read_bytes()[32:] != records:
            raise RuntimeError(f"with_requests.py has other records in {name}")
        if (folders["curl"] / f"{company}_{kind}").read_text() != "".join(lines_of(name, records)):
            raise RuntimeError(f"with_curl.sh has other records of {company} {kind}")


# What is measured.

def compare(service, port, folders):
    """One entry for each round: processor times and durations in seconds, of passes, lives and the alternatives."""
    rounds = []
    for _ in range(OPTIONS.rounds):
        service.rest()
        begin, begin_files = service.processor_time(), time.time()
        durations = [service.make_pass() for _ in range(OPTIONS.passes)]
        service.rest()
        figures = {"pass": (service.processor_time() - begin) / OPTIONS.passes, "pass wall": statistics.median(durations)}
        service.records()
        if min(path.stat().st_mtime for path in service.data.iterdir()) < begin_files - 0.01:  # the kernel's coarse clock
            raise RuntimeError("a pass has left a file out")
        service.end()
        lives = []
        for _ in range(3):
            service.start()
            lives.append(service.end())
        figures["life"] = statistics.mean(lives)
        floors = [floor(port, folders["floor"]) for _ in range(OPTIONS.passes)]
        figures["floor"] = statistics.mean(used for used, _ in floors)
        figures["floor wall"] = statistics.median(wall for _, wall in floors)
        figures["curl"], _ = with_curl(port, folders["curl"])
        figures["requests"], _ = with_requests(port, folders["requests"])
        service.start()
        rounds.append(figures)
    return rounds


def system_calls(service, folder):
    """Of a further pass: all but the records' writes, the records' writes."""
    log = folder / "strace"
    service.start("strace", "-D", "-f", "-y", "-o", log)
    passes = 3
    for _ in range(passes + 1):
        service.rest()
        service.make_pass()
    service.end()
    wait_until(lambda: log.read_bytes().endswith(b"+++\n"))
    # From one answer to the event to a later one. A call that another thread interrupts has two lines.
    calls = [line for line in log.read_text(errors="replace").splitlines() if re.match(r"\d+ +\w+\(", line)]
    begins = [at for at, line in enumerate(calls) if re.search(r'read\(\d+<[^>]*AmporaSrvUpdateEvent>, "', line)]
    calls = calls[begins[0]:begins[passes]]
    writes = sum(bool(re.search(r'write\(\d+<[^>]*\.dat>,.*, 40(\)| <)', call)) for call in calls)
    return (len(calls) - writes) / passes, writes / passes


def event_to_request(stack, folder):
    """Seconds from setting the event to the request at a server, for each try."""
    moments = []

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_GET(self):
            moments.append(time.perf_counter())
            self.send_response_only(503)
            self.send_header("Content-Length", "0")
            self.end_headers()

    server = stack.enter_context(http.server.HTTPServer(("127.0.0.1", 0), Handler))
    threading.Thread(target=server.serve_forever).start()
    stack.callback(server.shutdown)
    service = Service(stack, folder, server.server_port)
    seconds = []
    for _ in range(OPTIONS.tries):
        service.rest()
        begin = time.perf_counter()
        service.make_pass()
        seconds.append(moments[-REQUESTS] - begin)
    service.end()
    if len(moments) != (1 + OPTIONS.tries) * REQUESTS:
        raise RuntimeError("the passes had other numbers of requests")
    return seconds


def exit_to_end(service):
    """Seconds from the start of amporasrv /Exit to the end of the copy that runs, for each try."""
    seconds = []
    for _ in range(OPTIONS.tries):
        service.start()
        service.rest()
        begin = time.perf_counter()
        order = Run([OPTIONS.programs / "amporasrv", "/Exit"], service.environment)
        service.run.wait()
        seconds.append(time.perf_counter() - begin)
        order.wait()
    return seconds


def idle(service):
    """Switches in the time, private memory in KiB."""
    service.start()
    service.rest()
    before = service.switches()
    time.sleep(OPTIONS.idle)
    return service.switches() - before, service.private_kib()


def growth(service):
    """Private memory over many passes: KiB per 1,000 passes by the last three quarters, growth in all."""
    samples = []
    for number in range(OPTIONS.long):
        service.make_pass()
        if number % max(OPTIONS.long // 200, 1) == 0:
            service.rest()
            samples.append((number, service.private_kib()))
    later = [sample for sample in samples if sample[0] >= OPTIONS.long / 4]
    slope = statistics.linear_regression(*zip(*later)).slope
    return 1000 * slope, samples[-1][1] - samples[0][1]


def stripped_size(program, strip, folder):
    subprocess.run([strip, "-o", folder / "stripped", program], check=True)
    return (folder / "stripped").stat().st_size


# The document.

class Table:
    def __init__(self):
        self.lines = ["| Figure | amporasrv | The other | Ratio or figure | Aim | Reached |", "|---|---|---|---|---|---|"]

    def put(self, figure, ours, theirs, shown, aim, reached):
        self.lines.append(f"| {figure} | {ours} | {theirs} | {shown} | {aim} | {'yes' if reached else '**no**'} |")

    def put_ratio(self, figure, rounds, ours, theirs, aim, show=lambda ratio: f"{ratio:.2f}"):
        """Medians of both in milliseconds; of the rounds' ratios the median, the least and the greatest."""
        ratios = sorted(each[ours] / each[theirs] for each in rounds)
        ratio = statistics.median(ratios)
        milliseconds = [f"{1000 * statistics.median(each[name] for each in rounds):.1f} ms" for name in (ours, theirs)]
        self.put(figure, *milliseconds, f"{show(ratio)} ({show(ratios[0])} to {show(ratios[-1])})", show(aim), ratio <= aim)


def put_comparison(table, rounds):
    def as_part(ratio):
        return f"1/{1 / ratio:.3g}"

    table.put_ratio("processor time of a further pass, against curl and a bare parse", rounds, "pass", "floor", 0.45)
    table.put_ratio("processor time of start, pass and end, against curl and a bare parse", rounds, "life", "floor", 0.9)
    table.put_ratio("the same, against a script with curl and xmllint", rounds, "life", "curl", 1 / 25, as_part)
    table.put_ratio("the same, against Python's requests and ElementTree", rounds, "life", "requests", 1 / 10, as_part)
    table.put_ratio("duration of a further pass, against curl and a bare parse", rounds, "pass wall", "floor wall", 0.9)


def put_latency(table, figure, seconds, aim):
    seconds = sorted(1000 * second for second in seconds)
    # Of 100 tries the 99th.
    shown = seconds[max(len(seconds) * 99 // 100 - 1, 0)]
    table.put(figure, f"{statistics.median(seconds):.1f} ms at the median, {seconds[0]:.1f} to {seconds[-1]:.1f} ms", "",
              f"{shown:.1f} ms", f"{aim} ms", shown <= aim)


def put_micro(table, path):
    """path: what ampora_bench has written as JSON."""
    runs = {}
    for run in json.loads(path.read_text())["benchmarks"]:
        if run.get("error_occurred"):
            raise RuntimeError(f"{run['name']}: {run['error_message']}")
        if run["run_type"] == "iteration":
            runs.setdefault(run["run_name"], []).append(run)
    nanoseconds = {"ns": 1, "us": 1e3, "ms": 1e6}

    def median(name):
        return statistics.median(run["cpu_time"] * nanoseconds[run["time_unit"]] for run in runs[name])

    def size(name):
        first = runs[name][0]
        return first["bytes_per_second"] * first["cpu_time"] * nanoseconds[first["time_unit"]] / 1e9

    def bare_of(name):
        return name.replace("AnalyzeReport", "BareParse")

    analyses = sorted((name for name in runs if name.startswith("AnalyzeReport/")), key=size)
    for name in analyses:
        bare = bare_of(name)
        ratios = sorted(a["cpu_time"] / b["cpu_time"] for a, b in zip(runs[name], runs[bare], strict=True))
        ratio = statistics.median(ratios)
        table.put(f"analysis of {size(name) / 1024:,.0f} KiB, against a bare parse",
                  *(f"{median(each) / size(name):.1f} ns a byte" for each in (name, bare)),
                  f"{ratio:.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f})", "1.25", ratio <= 1.25)
    longest, usual = analyses[-1], analyses[1]
    growths = [median(name(longest)) / size(longest) / (median(name(usual)) / size(usual)) for name in (str, bare_of)]
    table.put(f"time a byte of {size(longest) / 1024:,.0f} KiB, against that of {size(usual) / 1024:,.0f} KiB",
              *(f"{each:.2f}" for each in growths), f"{growths[0]:.2f}", "1.25", growths[0] <= 1.25)
    off = median("SwitchedOffTraceLine")
    table.put("a switched-off trace line", f"{off:.2f} ns", "", f"{off:.2f} ns", "2 ns", off <= 2)


def put_reportd(table, path):
    """path: what scripts/bench-reportd.sh has printed."""
    for line in path.read_text().splitlines()[1:]:
        name, size, _, theirs, ours, ratio, *_ = line.split()
        table.put(f"ampora-reportd: requests a second with {name} ({size} bytes), against nginx", ours, theirs, ratio,
                  "at least 0.7", float(ratio) >= 0.7)


def machine():
    cpu = pathlib.Path("/proc/cpuinfo").read_text()
    model = re.search(r"model name\s*: (.*)", cpu)
    return f"{os.cpu_count()} processors ({model[1] if model else os.uname().machine}), Linux {os.uname().release}"


def measure(stack, table):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="ampora-bench-"))
    stack.callback(shutil.rmtree, folder)
    folders = {name: folder / name for name in ("curl", "requests", "floor")}
    for path in folders.values():
        path.mkdir()
    clock = {"LD_PRELOAD": str(OPTIONS.faketime), "FAKETIME": "+2d", "DONT_FAKE_MONOTONIC": "1"}
    with on_processor(0):
        reportd = Reportd(OPTIONS.programs / "ampora-reportd", {**os.environ, **clock})
    stack.callback(reportd.kill)
    port = reportd.port
    service = Service(stack, folder / "service", port)
    verify(service, port, folders)
    put_comparison(table, compare(service, port, folders))
    service.end()
    calls, writes = system_calls(service, folder)
    table.put("system calls of a further pass, beside the records' writes", f"{calls:.0f} and {writes:.0f} writes", "",
              f"{calls:.0f}", "600", calls <= 600)
    if OPTIONS.micro:
        put_micro(table, OPTIONS.micro)
    put_latency(table, "event set to request on the wire, the 99th of 100", event_to_request(stack, folder / "mute"), 10)
    put_latency(table, "/Exit to the end, the 99th of 100", exit_to_end(service), 30)
    switches, private = idle(service)
    table.put(f"switches of an idle program in {OPTIONS.idle} s", switches, "", switches, "0", switches == 0)
    table.put("its private memory", f"{private} KiB", "", f"{private / 1024:.2f} MiB", "1.5 MiB", private <= 1.5 * 1024)
    slope, whole = growth(service)
    table.put(f"private memory over {OPTIONS.long:,} passes", f"{whole:+} KiB in all", "", f"{slope:+.2f} KiB per 1,000 passes",
              "no slope (less than a page in these)", slope * OPTIONS.long * 0.75 / 1000 < PAGE_KIB)
    service.end()
    for name, program, strip, aim in (("amporasrv", OPTIONS.programs / "amporasrv", "strip", 300),
                                      ("amporasrv.exe", OPTIONS.windows, "x86_64-w64-mingw32-strip", 1024)):
        if program:
            size = stripped_size(program, strip, folder)
            table.put(f"size of {name}, stripped", f"{size:,} bytes", "", f"{size / 1024:.0f} KiB", f"{aim} KiB",
                      size <= aim * 1024)
    if OPTIONS.reportd:
        put_reportd(table, OPTIONS.reportd)
    return service.expected, calls


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("programs", "tools", "faketime"):
        parser.add_argument(f"--{name}", type=pathlib.Path, required=True)
    parser.add_argument("--windows", type=pathlib.Path, help="amporasrv.exe")
    parser.add_argument("--micro", type=pathlib.Path, help="what ampora_bench has written as JSON")
    parser.add_argument("--reportd", type=pathlib.Path, help="what bench-reportd.sh has printed")
    parser.add_argument("--rounds", type=int, default=9, help="runs of which the median is taken")
    parser.add_argument("--passes", type=int, default=20, help="further passes of a round")
    parser.add_argument("--tries", type=int, default=100, help="of what happens at once")
    parser.add_argument("--idle", type=int, default=20, help="seconds")
    parser.add_argument("--long", type=int, default=10000, help="passes over which memory may not grow")
    parser.add_argument("--pin", action="store_true", help="the server on processor 0, what is measured on 1")
    parser.add_argument("--most-calls", type=int, help="fails when a pass makes more system calls beside its records' writes")
    global OPTIONS
    OPTIONS = parser.parse_args()
    table = Table()
    begin, load = time.monotonic(), os.getloadavg()[0]
    with contextlib.ExitStack() as stack:
        records, calls = measure(stack, table)
    print(f"Measured on {machine()}, under a load of {load:.1f} at the start. {OPTIONS.rounds} rounds of {OPTIONS.passes} "
          f"passes of {REQUESTS} requests, {FILES} files and {records} records; {time.monotonic() - begin:.0f} s in all.\n")
    print("\n".join(table.lines))
    if OPTIONS.most_calls is not None and calls > OPTIONS.most_calls:
        sys.exit(f"a pass makes {calls:.0f} system calls, more than {OPTIONS.most_calls}")


main()
