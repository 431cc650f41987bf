"""The real Linux programs, for tests and measurements in Python."""
import os
import re
import subprocess
import time

LIMIT = 30  # seconds that anything may take

# Company, kinds that a machine asks for when nothing else is set; in the order of a pass.
COMPANIES = {"tokyo": "iaesd", "tohoku": "iaesd", "kansai": "iaesd", "chubu": "asd", "kyushu": "isd"}
KINDS = {"i": "usage/{}/instant", "a": "usage/{}/actual", "e": "usage/{}/estimated", "s": "peak/{}/supply",
         "d": "peak/{}/demand"}


def targets_of_a_pass(days):
    return [f"/{KINDS[kind].format(company)}?date={day}&output=xml"
            for company, kinds in COMPANIES.items() for kind in kinds for day in days]


def make_place(folder, port, log_level):
    """Makes, below an empty folder, all that amporasrv needs of a machine, for a report server at this port of loopback.
    The data files will lie in data/AmporaSrv. Returns the environment for it."""
    for name in ("user", "machine/AmporaSrv", "run", "lock", "data"):
        (folder / name).mkdir(parents=True)
    (folder / "run").chmod(0o700)
    (folder / "machine/AmporaSrv/settings.reg").write_text(
        "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n"
        f'"Enable"=dword:00000001\n"LogLevel"=dword:{log_level:08x}\n"ApiHost"="127.0.0.1:{port}"\n')
    environment = {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}
    environment.update(
        XDG_CONFIG_HOME=str(folder / "user"), XDG_CONFIG_DIRS=str(folder / "machine"), XDG_RUNTIME_DIR=str(folder / "run"),
        AMPORA_LOCK_DIR=str(folder / "lock"), AMPORA_COMMON_APPDATA=str(folder / "data"), AMPORA_CONNECTED_STATE="2")
    return environment


def wait_until(condition):
    end = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError("it did not happen in time")
        time.sleep(0.01)


class Reportd:
    """ampora-reportd with sample data, at a free port of loopback."""

    def __init__(self, program, environment=None):
        self.process = subprocess.Popen([program, "--source", "sample", "--port", "0"], env=environment,
                                        stdout=subprocess.PIPE, text=True)
        ready = self.process.stdout.readline()
        self.port = int(re.fullmatch(r".* on http://127\.0\.0\.1:(\d+)\n", ready)[1])

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
