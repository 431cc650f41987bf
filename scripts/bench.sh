#!/usr/bin/env bash
# Measures the programs against what could do their work instead, and writes the figures into docs/performance.md, between
# the two lines that say so: bench.sh [ARGUMENT...]
#
# Takes some eight minutes on a machine with two processors that does nothing else. Arguments go to bench/measure.py. A
# run that fails leaves the document as it is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux amporasrv ampora_reportd ampora_bench bare_parse
scripts/build.sh windows amporasrv
mkdir -p build/bench

echo 'bench: ampora_bench'
build/linux/tests/ampora_bench --benchmark_filter='AnalyzeReport|BareParse|SwitchedOff' --benchmark_repetitions=9 \
  --benchmark_min_time=0.1 --benchmark_enable_random_interleaving=true --benchmark_out=build/bench/micro.json \
  --benchmark_out_format=json >build/bench/micro.txt 2>&1
echo 'bench: ampora-reportd and nginx'
scripts/bench-reportd.sh build/linux/bin/ampora-reportd >build/bench/reportd.txt
echo 'bench: amporasrv'
bench/measure.py --programs build/linux/bin --tools build/linux/tests --windows build/windows/bin/amporasrv.exe \
  --faketime "/usr/lib/$(gcc -print-multiarch)/faketime/libfaketime.so.1" --micro build/bench/micro.json \
  --reportd build/bench/reportd.txt --pin "$@" >build/bench/figures.md
scripts/renew-figures docs/performance.md figures <build/bench/figures.md
cat build/bench/figures.md
