# The commands. Each installs what it needs first, and no more; scripts/ does the work.
.DEFAULT_GOAL := programs
.PHONY: help programs windows install package msi bundle-windows setup demo live demo-windows check test test-linux \
        test-windows test-asan test-tsan test-packages test-reproducible simulate fleet attack fuzz bench coverage format tidy clean

programs: ## build the programs for this system and say where they lie; what "make" alone does
	@scripts/setup.sh build
	@scripts/build.sh linux
	@echo 'Next: "make demo" shows them at work, "make help" lists the commands, README.md tells how to use them.'

windows: ## the same for Windows
	@scripts/setup.sh windows
	@scripts/build.sh windows

PREFIX ?= /usr/local
install: ## install the programs and what belongs to them below PREFIX (/usr/local), in the tree DESTDIR (none)
	@scripts/setup.sh build manuals
	@scripts/build.sh linux programs library
	@DESTDIR=$(abspath $(DESTDIR)) cmake --install build/linux --prefix $(PREFIX)

package: ## build the packages for Debian and Windows, in build/packages; lintian looks at the former
	@scripts/setup.sh build manuals packages windows msi
	@scripts/package.sh
	@scripts/package-windows.sh

msi: ## build the package for Windows alone, with the manifests of winget, in build/packages
	@scripts/setup.sh windows manuals msi
	@scripts/package-windows.sh

bundle-windows: ## build the archive with which a person tries everything on a real Windows, in build/packages
	@scripts/setup.sh build windows tests manuals msi
	@scripts/bundle-windows.sh

test-packages: ## install, use, upgrade and remove the packages: in clean Debian systems (as root), under wine
	@scripts/setup.sh build manuals packages package-tests windows wine tests msi
	@scripts/package.sh
	@scripts/test-packages.sh
	@scripts/test-msi.sh
	@scripts/build.sh --tests windows all
	@packaging/windows/bundle_test.sh build/windows run

test-reproducible: ## build programs and packages twice, for both systems, and compare the bytes
	@scripts/setup.sh build manuals packages package-tests windows msi
	@scripts/test-reproducible.sh

help: ## show this list
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' $(MAKEFILE_LIST) | expand -t 16

setup: ## install everything that any of these commands needs
	@scripts/setup.sh all

demo: ## the program at work against ampora-reportd
	@scripts/setup.sh build
	@scripts/demo.sh linux

live: ## the same with what the power companies publish, which it fetches from them; until Ctrl-C
	@scripts/setup.sh build
	@scripts/live.sh

demo-windows: ## the demo with the Windows programs, under wine
	@scripts/setup.sh windows wine
	@scripts/demo.sh windows

check: ## layout, layers, repository rules, static analysis, and the checks of these checks
	@scripts/setup.sh build windows tests checks
	@scripts/test.sh checks

test: ## build and run every test, for Linux and, under wine, for Windows
	@scripts/setup.sh build windows wine tests bus browser msi bench
	@scripts/test.sh linux windows

test-linux: ## build and run the tests for Linux
	@scripts/setup.sh build tests bus browser bench
	@scripts/test.sh linux

test-windows: ## build the tests for Windows and run them under wine
	@scripts/setup.sh build windows wine tests bus msi
	@scripts/test.sh windows

test-asan: ## the Linux tests with address and undefined behaviour sanitizers
	@scripts/setup.sh build tests bus
	@scripts/test.sh linux-asan

test-tsan: ## the Linux tests with the thread sanitizer
	@scripts/setup.sh build tests bus
	@scripts/test.sh linux-tsan

simulate: ## run the whole program for DAYS (30) simulated days under SEEDS (200) seeds from FIRST_SEED (1) on
	@scripts/setup.sh build tests
	@SEEDS=$(SEEDS) DAYS=$(DAYS) FIRST_SEED=$(FIRST_SEED) scripts/simulate.sh

fleet: ## compute the load of MACHINES (1000000) machines under SEED (1), for docs/fleet.md
	@scripts/setup.sh build tests
	@MACHINES=$(MACHINES) SEED=$(SEED) scripts/fleet.sh

attack: ## attack the programs in every way, or in those named in PARTS, and write the figures into docs/testing.md
	@scripts/setup.sh build windows wine tests bus checks fuzz
	@scripts/attack.sh $(PARTS)

fuzz: ## run each fuzzer for FUZZ_SECONDS (default 30)
	@scripts/setup.sh build fuzz
	@scripts/fuzz.sh

bench: ## measure the programs against alternatives and write the figures into docs/performance.md, in some minutes
	@scripts/setup.sh build windows tests bench bench-http
	@scripts/bench.sh

coverage: ## line and branch coverage of the Linux tests
	@scripts/setup.sh build tests bus coverage
	@scripts/coverage.sh

format: ## lay out all sources
	@scripts/setup.sh format
	@scripts/check-format --fix

tidy: ## static analysis of all sources
	@scripts/setup.sh build windows tests checks
	@scripts/configure.sh --tests linux
	@scripts/configure.sh --tests windows
	@scripts/check-tidy

clean: ## remove everything that was built
	@scripts/wine.sh stop
	rm -rf build
