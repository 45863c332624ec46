#!/usr/bin/env python3
"""Shows the medians of benchmark runs (Google Benchmark's JSON) and how they stand to the bars.

    bench/compare.py FILE.json...

Exit status 1 if a bar is missed.
"""
import json
import sys

# What is compared, with what, and how many times the latter it may take. "-Yield": less the time of
# that benchmark. A peer of a number is a bar in nanoseconds.
BARS = [
    ("Disabled", 1.0, 1),
    ("LogLine", "LogLineFloor", 1.25),
    ("LogLine", "LogLineSpdlog", 0.8),
    ("RingLine", "RingLineFloor", 1.6),
    ("LogLineMemory", ("LogLine", "LogLineMemoryFloor"), 1.25),
    ("SetReset-Yield", "SetResetCondition", 1.5),
    ("WakeUp", "WakeUpCondition", 1.5),
    ("WaitZero", 200.0, 1),
    ("RunTrue", "RunTrueSpawn", 2),
    ("RunTrue", "RunTrueLoop", 0.05),
    ("ProfileVendors", "ProfileVendorsFloor", 1.5),
    ("ProfileOneSection", "ProfileOneSectionFloor", 1.5),
    ("RegistryLoadFirst", "LoadFloorFirst", 3),
    ("RegistryLoadFirst", "LoadSqliteFirst", 1),
    ("RegistryLoad", "LoadFloor", 3),
    ("RegistryLoad", "LoadSqlite", 1),
    ("RegistrySave", "SaveFloor", 2),
    ("RegistryGet", 150.0, 1),
    ("RegistryGetText", "GetGKeyFile", 1),
    ("RegistryOpen", 1000.0, 1),
    # Ten times the values take ten times as long, and 1.25 times of that for n log n.
    ("RegistryOneKey/100000/0", "RegistryOneKey/10000/0", 12.5),
    ("RegistryOneKey/100000/1", "RegistryOneKey/10000/1", 12.5),
]
DOCUMENTS = ["mime", "iso", "xkb", "cldr", "annotations", "large", "deep", "wide", "attributes", "text"]
for _document in DOCUMENTS:
    for _peer in ("Pugixml", "Rapidxml"):
        BARS.append((f"MarkupParse/{_document}", f"{_peer}Parse/{_document}", 1 if _document == "text" else 0.8))
        BARS.append((f"MarkupFirst/{_document}", f"{_peer}First/{_document}", 0.667))
        BARS.append((f"MarkupWalk/{_document}", f"{_peer}Walk/{_document}", 1))
for _what in ("Path", "Anywhere", "AttributeFirst", "AttributeLast"):
    for _peer in ("Pugixml", "Rapidxml"):
        BARS.append((f"Markup{_what}", f"{_peer}{_what}", 1))
# Bytes of memory an element of the tree: 32 and 1 %, and what lies between them and whole pages.
ELEMENT_BYTES, PAGES = 32 * 1.01, 2 * 4096
# Lines a second of four threads together: at least half of one thread's, and no worse than the peer.
SCALING = [("LogLine", "LogLineSpdlog"), ("RingLine", None)]


def main():
    medians, host = {}, {}
    for name in sys.argv[1:]:
        with open(name, encoding="utf-8") as file:
            run = json.load(file)
        host = run["context"]
        for row in run["benchmarks"]:
            if row.get("aggregate_name") == "median":
                medians[row["run_name"]] = row
    print(f"{host['num_cpus']} cores, {host['mhz_per_cpu']} MHz, load {host['load_avg']}, {host['date']}\n")
    for name, row in sorted(medians.items()):
        rate = f"{row['items_per_second'] / 1e6:8.3f} M/s" if "items_per_second" in row else ""
        print(f"  {name:<44} {row['real_time']:10.1f} ns {row['cpu_time']:10.1f} ns cpu {rate}")
    print()

    missed = 0

    def time_of(what):
        if isinstance(what, float):
            return what
        if isinstance(what, tuple):
            return sum(time_of(part) for part in what)
        name, _, less = what.partition("-")
        for known in (name, name + "/real_time", name + "/manual_time"):
            if known in medians:
                return medians[known]["real_time"] - (time_of(less) if less else 0)
        raise KeyError(what)

    def show(text, ratio, good):
        nonlocal missed
        missed += not good
        print(f"  {'ok    ' if good else 'MISSED'} {text:<58} {ratio:6.2f}")

    for what, peer, bar in BARS:
        try:
            ratio = time_of(what) / time_of(peer)
        except KeyError:
            continue
        label = f"{peer:g} ns" if isinstance(peer, float) else " + ".join(peer) if isinstance(peer, tuple) else peer
        show(f"{what} / {label}, at most {bar}", ratio, ratio <= bar)
    for what, peer in SCALING:
        try:
            own = time_of(what) / time_of(f"{what}/real_time/threads:4")
            bar = 0.5
            if peer:
                bar = max(bar, time_of(peer) / time_of(f"{peer}/real_time/threads:4"))
        except KeyError:
            continue
        show(f"{what}: lines a second of 4 threads / of 1, at least {bar:.2f}", own, own >= bar)
    for name, row in sorted(medians.items()):
        if name.startswith("MarkupFirst/"):
            bar = ELEMENT_BYTES + PAGES / row["elements"]
            show(f"{name.split('/man')[0]}: bytes an element, at most {bar:.2f}", row["bytes"], row["bytes"] <= bar)
    return 1 if missed else 0


sys.exit(main())
