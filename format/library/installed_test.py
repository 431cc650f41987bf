#!/usr/bin/env python3
"""Builds the samples against the installed library and runs them: installed_test.py BUILD CC CXX [TOOLCHAIN EMULATOR...]

The library is installed into a scratch folder, which is then moved. The samples are built there by find_package and by
pkg-config, and print the same, as does the one in Python, of files that are written here byte by byte. So are the
examples of docs/library.md. TOOLCHAIN, EMULATOR: for another system's programs, the CMake file of their compiler and the command that runs them.
"""
import os
import queue
import shlex
import signal
import struct
import subprocess
import sys
import tempfile
import textwrap
import threading

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
SAMPLES = os.path.join(ROOT, "samples")
SAMPLE_SOURCES = [os.path.join(SAMPLES, name) for name in ("newest.c", "newest.cpp")]
JULY_2 = (2012, 7, 1, 2)


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def data_file(kind, values_by_hour, count=None):
    header = struct.pack("<4I8H", 0x10000, kind, len(values_by_hour) if count is None else count, 0, *JULY_2, 13, 0, 0, 0)
    return header + b"".join(struct.pack("<Q8H8H", value, *JULY_2, hour, 0, 0, 0, *JULY_2, hour + 1, 0, 0, 0)
                             for hour, value in values_by_hour.items())


FILES = {
    "tokyo_00000001.dat": data_file(1, {12: 4000, 14: 2**63 + 1, 13: 4200}),
    "kansai_00000008.dat": data_file(8, {}),
    "kyushu_00000010.dat": data_file(16, {12: 5}, count=2),
}
EXPECTED = ["Tokyo, instant usage: 3 records, newest value 9223372036854775809",
            "Kansai, peak supply: 0 records",
            "Kyushu, peak demand: its length is not what its record count makes"]


def install(build, scratch):
    first, prefix = os.path.join(scratch, "first"), os.path.join(scratch, "moved here")
    for component in ("library", "development"):
        run("cmake", "--install", build, "--component", component, "--prefix", first)
    os.rename(first, prefix)
    return prefix


def build_with_cmake(prefix, scratch, compilers, toolchain):
    build = os.path.join(scratch, "samples")
    options = [f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_C_COMPILER={compilers[0]}", f"-DCMAKE_CXX_COMPILER={compilers[1]}"]
    if toolchain:  # which says where to look for packages
        options = [f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", f"-DAmpora_DIR={prefix}/lib/cmake/Ampora"]
    run("cmake", "-G", "Ninja", "-S", SAMPLES, "-B", build, *options)
    run("cmake", "--build", build)
    return [os.path.join(build, name)
            for name in ("newest_c", "newest_c_static", "newest_cpp", "newest_cpp_static", "watch_c")]


def build_with_pkg_config(prefix, scratch, compilers, sources, is_windows):
    environment = dict(os.environ, PKG_CONFIG_LIBDIR=os.path.join(prefix, "lib", "pkgconfig"))

    def flags(*options):
        return shlex.split(run("pkg-config", *options, "ampora", env=environment))

    shared = flags("--libs")
    static = [flag if flag != "-lampora" else "-l:libampora.a" for flag in flags("--static", "--libs")]
    c, cxx = zip(compilers, sources)
    programs = []
    for name, (compiler, source), libraries in [
            ("shared", c, shared),
            ("static", c, [*static, "-static"] if is_windows else static),
            ("static", cxx, [*static, "-static"] if is_windows else static),
            *([] if is_windows else [("shared", cxx, shared)])]:  # needs the C++ library's DLL there
        programs.append(os.path.join(scratch, f"{name}_{os.path.basename(source)}".replace(".", "_")))
        run(compiler, *flags("--cflags"), "-o", programs[-1], source, *libraries)
    return programs


def write_examples(scratch):
    """The examples of the document, as sources by their suffix."""
    with open(os.path.join(ROOT, "docs", "library.md"), encoding="utf-8") as document:
        text = document.read()
    sources = {}
    for heading, suffix in (("C", "c"), ("C++", "cpp"), ("Python", "py")):
        part = text.split(f"\n### {heading}\n")[1].split("\n#")[0]
        sources[suffix] = os.path.join(scratch, f"example.{suffix}")
        with open(sources[suffix], "w", encoding="utf-8") as source:
            source.write(textwrap.dedent("\n".join(line for line in part.splitlines() if line[:4] in ("", "    "))))
    return sources


def expect_example_output(command, environment):
    done = subprocess.run(command, capture_output=True, text=True, check=False, env=environment, timeout=60)
    if done.stdout.split() != [str(2**63 + 1)] or done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode} and printed:\n{done.stdout}{done.stderr}")


def expect_output(command, environment):
    done = subprocess.run(command, capture_output=True, text=True, check=False, env=environment, timeout=60)
    if done.stdout.splitlines() != EXPECTED or done.returncode != 1:
        sys.exit(f"{command} ended with {done.returncode} and printed:\n{done.stdout}{done.stderr}")


def expect_news(command, folder, environment):
    """The program tells of a written file. It may not watch yet when the first one is written."""
    with subprocess.Popen([*command, folder], stdout=subprocess.PIPE, text=True, env=environment,
                          start_new_session=True) as watching:
        try:
            lines = queue.Queue()
            threading.Thread(target=lambda: lines.put(watching.stdout.readline()), daemon=True).start()
            for _ in range(20):
                with open(os.path.join(folder, "news.dat"), "wb") as file:
                    file.write(b"news")
                try:
                    line = lines.get(timeout=3)
                except queue.Empty:
                    continue
                if line != "new data\n":
                    sys.exit(f"{command} printed: {line}")
                return
            sys.exit(f"{command} tells of no change")
        finally:
            os.killpg(watching.pid, signal.SIGKILL)  # with what the emulator has started


def main(build, compilers, toolchain, emulator):
    with tempfile.TemporaryDirectory() as scratch:
        prefix = install(build, scratch)
        folder = os.path.join(scratch, "AmporaSrv")
        os.mkdir(folder)
        for name, content in FILES.items():
            with open(os.path.join(folder, name), "wb") as file:
                file.write(content)
        *programs, watching = build_with_cmake(prefix, scratch, compilers, toolchain)
        programs += build_with_pkg_config(prefix, scratch, compilers, SAMPLE_SOURCES, bool(toolchain))
        examples = write_examples(scratch)
        example_programs = build_with_pkg_config(prefix, scratch, compilers, (examples["c"], examples["cpp"]), bool(toolchain))
        environment = dict(os.environ, LD_LIBRARY_PATH=os.path.join(prefix, "lib"))
        for place in {os.path.dirname(program) for program in programs} if toolchain else ():
            os.symlink(os.path.join(prefix, "bin", "ampora.dll"), os.path.join(place, "ampora.dll"))
        for program in programs:
            expect_output([*emulator, program + (".exe" if toolchain else ""), folder], environment)
        expect_news([*emulator, watching + (".exe" if toolchain else "")], folder, environment)
        if not toolchain:
            sample = os.path.join(SAMPLES, "newest.py")
            expect_output([sample, folder], environment)
            # Without an argument, the folder into which AmporaSrv writes.
            environment["AMPORA_COMMON_APPDATA"] = scratch
            for command in (sample, programs[0]):
                expect_output([command], environment)
            expect_example_output([sys.executable, examples["py"]], environment)
            for program in example_programs:
                expect_example_output([program], environment)
        print(f"{len(programs)} programs built against the installed library print what they should")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:4], sys.argv[4] if len(sys.argv) > 4 else "", sys.argv[5:])
