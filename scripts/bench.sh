#!/usr/bin/env bash
# Builds the benchmarks as what ships is built, runs them beside their peers, and shows medians and
# ratios with the bars that the project holds itself to. Arguments go to the benchmark programs
# (--benchmark_filter=...). Exit status 1 if a bar is missed: on a busy machine run it again.

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

need "${build_tools[@]}" benchmark/benchmark.h:libbenchmark-dev spdlog/spdlog.h:libspdlog-dev \
    pkg-config:pkgconf glib-2.0/glib.h:libglib2.0-dev ini.h:libinih-dev sqlite3.h:libsqlite3-dev \
    python3:python3 pugixml.hpp:libpugixml-dev rapidxml/rapidxml.hpp:librapidxml-dev \
    tinyxml2.h:libtinyxml2-dev libxml2/libxml/parser.h:libxml2-dev expat.h:libexpat1-dev \
    /usr/share/mime/packages/freedesktop.org.xml:shared-mime-info \
    /usr/share/X11/xkb/rules/base.xml:xkb-data /usr/share/xml/iso-codes/iso_639-3.xml:iso-codes \
    /usr/share/unicode/cldr/common/main/en.xml:unicode-cldr-core
cmake --preset release -B build/bench -DZORN_TESTS=OFF -DZORN_BENCH=ON
cmake --build build/bench

for program in build/bench/bin/*_bench; do
    "$program" --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true \
        --benchmark_min_time=0.1 --benchmark_report_aggregates_only=true \
        --benchmark_out="$program.json" --benchmark_out_format=json "$@" >/dev/null
done
status=0
python3 bench/compare.py build/bench/bin/*_bench.json || status=1
python3 bench/daemon.py build/bench/bin/zorn build/bench/lib || status=1
exit "$status"
