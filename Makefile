# The commands. Each sets up what it needs first; scripts/ does the work.
.DEFAULT_GOAL := help
.PHONY: help setup demo demo-windows test test-linux test-windows test-asan test-tsan simulate fuzz bench coverage format tidy \
        clean

help: ## show this list
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' $(MAKEFILE_LIST) | expand -t 16

setup: ## install what building and testing need and this machine lacks
	@scripts/setup.sh

demo: setup ## the program at work against ampora-reportd, on Linux
	@scripts/demo.sh linux

demo-windows: setup ## the same with the Windows program, under wine
	@scripts/demo.sh windows

test: setup ## every check and test: what has to pass before a change goes in
	@scripts/test.sh checks linux windows

test-linux: setup ## build and test for Linux
	@scripts/test.sh linux

test-windows: setup ## build for Windows and test under wine
	@scripts/test.sh windows

test-asan: setup ## the Linux tests with address and undefined behaviour sanitizers
	@scripts/test.sh linux-asan

test-tsan: setup ## the Linux tests with the thread sanitizer
	@scripts/test.sh linux-tsan

simulate: setup ## run the whole program for DAYS simulated days (default 30) under each of SEEDS seeds (default 200)
	@SEEDS=$(SEEDS) DAYS=$(DAYS) FIRST_SEED=$(FIRST_SEED) scripts/simulate.sh

fuzz: setup ## run each fuzzer for FUZZ_SECONDS (default 30)
	@scripts/fuzz.sh

bench: setup ## run the benchmarks
	@scripts/bench.sh

coverage: setup ## line and branch coverage of the Linux tests
	@scripts/coverage.sh

format: setup ## lay out all sources
	@scripts/check-format --fix

tidy: setup ## static analysis of all sources
	@scripts/check-tidy

clean: ## remove everything that was built
	rm -rf build
