#!/usr/bin/env python3
"""Writes docs/performance.md from the Google Benchmark JSON files of one
scripts/bench.sh run: each figure beside its baseline from the same run,
the ratio (library / baseline), the goal and the verdict."""

import argparse
import datetime
import json
import os
import re
import statistics
import subprocess

UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
# Parts of a benchmark's name that only say how it was run.
RUN_PARTS = re.compile(r"^(iterations|repeats|min_time|min_warmup_time):.*$|^real_time$|^process_time$")


def canonical(run_name):
    return "/".join(part for part in run_name.split("/") if not RUN_PARTS.match(part))


class Results:
    """The figures of every program, by file and canonical benchmark name."""

    def __init__(self, directory):
        self.entries = {}
        self.spreads = {}
        for file in sorted(os.listdir(directory)):
            if not file.endswith(".json"):
                continue
            with open(os.path.join(directory, file)) as handle:
                data = json.load(handle)
            aggregates, runs, spreads = {}, {}, {}
            for entry in data.get("benchmarks", []):
                key = canonical(entry.get("run_name", entry["name"]))
                if entry.get("error_occurred"):
                    raise SystemExit(f"report: {file}: {entry['name']} failed: {entry.get('error_message')}")
                if entry.get("run_type") == "aggregate":
                    name = entry.get("aggregate_name")
                    if name == "cv":
                        spreads[key] = entry
                    else:
                        aggregates.setdefault(key, {})[name] = [entry]
                else:
                    runs.setdefault(key, []).append(entry)
            table = {key: {"runs": entries} for key, entries in runs.items()}
            for key, by_name in aggregates.items():
                table[key] = by_name
            self.entries[file[:-5]] = table
            self.spreads[file[:-5]] = spreads

    def has(self, file, key):
        return key in self.entries.get(file, {})

    # Wall-clock times and rates: the median of the interleaved repetitions. A
    # round trip on this kind of machine is bimodal (about 35 µs while the
    # processors are kept awake by other work, about 110 µs when each hop
    # wakes an idle one), so the fastest repetition is whichever happened to
    # run beside other work; the median is the typical one. CPU times: the
    # lowest (other work only ever adds to them). Message counts: the
    # highest; other counters: the median. A benchmark run once has only its runs.
    STATISTIC = {"real_time": "median", "cpu_time": "min", "items_per_second": "median",
                 "bytes_per_second": "median", "bus_messages": "max", "bus_msgs_per_call": "max"}

    def value(self, file, key, field):
        by_name = self.entries.get(file, {}).get(key)
        if not by_name:
            raise KeyError(f"{file}: {key}")
        entries = by_name.get(self.STATISTIC.get(field, "median")) or by_name.get("median") or by_name["runs"]
        values = []
        for entry in entries:
            value = entry[field]
            if field in ("real_time", "cpu_time"):
                value *= UNIT_NS[entry.get("time_unit", "ns")]
            values.append(value)
        return statistics.median(values)

    def spread(self, file, key, field="real_time"):
        """The coefficient of variation of the repetitions (0 when not repeated)."""
        entry = self.spreads.get(file, {}).get(key)
        return entry[field] if entry else 0.0

    def noise(self, file, keys, field="real_time"):
        return max(self.spread(file, key, field) for key in keys)

    def real(self, file, key):
        return self.value(file, key, "real_time")

    def cpu(self, file, key):
        return self.value(file, key, "cpu_time")


# ---- Formatting ----

def fmt_time(ns):
    if ns >= 1e9:
        return f"{ns / 1e9:.2f} s"
    if ns >= 1e6:
        return f"{ns / 1e6:.2f} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.1f} µs"
    return f"{ns:.1f} ns"


def fmt_rate(per_second, unit="calls/s"):
    return f"{per_second:,.0f} {unit}"


def fmt_bytes_rate(per_second):
    return f"{per_second / 1e6:.2f} MB/s"


def fmt_size(size):
    size = int(size)
    if size >= 1024 * 1024 and size % (1024 * 1024) == 0:
        return f"{size // (1024 * 1024)} MiB"
    if size >= 1024 and size % 1024 == 0:
        return f"{size // 1024} KiB"
    return f"{size:,} bytes"


class Table:
    """A table of figures: library, baseline, ratio, goal, verdict."""

    HEADER = ("| Figure | Library | Baseline | Ratio (spread) | Goal | Verdict |\n"
              "|---|---|---|---|---|---|\n")

    def __init__(self):
        self.rows = []
        self.missed = []

    def ratio(self, label, library, baseline, ratio, goal=None, at_most=True, noise=0.0):
        if goal is None:
            verdict, goal_text = "—", "none set"
        else:
            met = ratio <= goal if at_most else ratio >= goal
            verdict = "met" if met else "**missed**"
            goal_text = f"≤ {goal:.2f}" if at_most else f"≥ {goal:.2f}"
            if not met:
                self.missed.append(label)
        spread = f" (±{noise * 100:.0f}%)" if noise else ""
        self.rows.append(f"| {label} | {library} | {baseline} | {ratio:.2f}{spread} | {goal_text} | {verdict} |")

    def plain(self, label, library, baseline="—", ratio="—", goal="—", verdict="—"):
        self.rows.append(f"| {label} | {library} | {baseline} | {ratio} | {goal} | {verdict} |")

    def render(self):
        return self.HEADER + "\n".join(self.rows) + "\n"


# ---- Machine ----

def machine_facts():
    model = "unknown"
    with open("/proc/cpuinfo") as cpuinfo:
        for line in cpuinfo:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    with open("/proc/meminfo") as meminfo:
        total_kib = int(meminfo.readline().split()[1])
    kernel = os.uname().release
    try:
        daemon = subprocess.run(["dbus-daemon", "--version"], capture_output=True, text=True).stdout.splitlines()[0]
    except (OSError, IndexError):
        daemon = "dbus-daemon"
    return {"cpus": os.cpu_count(), "model": model, "memory": f"{total_kib / 1024 / 1024:.1f} GiB",
            "kernel": kernel, "daemon": daemon}


# ---- Sections ----

def client_section(r):
    t = Table()
    bare = r.real("client", "BM_Bare_SdBusCall")
    two = r.real("client", "BM_Bare_SdBusTwoCalls")
    pair = r.real("client", "BM_Bare_SdBusDisclaimerPair")
    lib = r.real("client", "BM_Lib_IsServiceAvailable")
    t.ratio("`IsServiceAvailable()` vs one bare sd-bus round trip", fmt_time(lib), fmt_time(bare), lib / bare, 1.15,
            noise=r.noise("client", ["BM_Lib_IsServiceAvailable", "BM_Bare_SdBusCall"]))
    lib = r.real("client", "BM_Lib_SetCountryCode")
    t.ratio("`SetCountryCode(\"DE\")` (two exchanges) vs two bare round trips", fmt_time(lib), fmt_time(two),
            lib / two, 1.15, noise=r.noise("client", ["BM_Lib_SetCountryCode", "BM_Bare_SdBusTwoCalls"]))
    lib = r.real("client", "BM_Lib_GetDisclaimerDetail")
    t.ratio("`GetDisclaimerDetail` by position (two exchanges) vs two bare round trips", fmt_time(lib),
            fmt_time(pair), lib / pair, 1.15,
            noise=r.noise("client", ["BM_Lib_GetDisclaimerDetail", "BM_Bare_SdBusDisclaimerPair"]))
    per_item = {}
    for count in (1, 10, 100):
        total = r.real("client", f"BM_Lib_GetDisclaimerDetails/{count}")
        # The count request pair plus one pair per item.
        per_item[count] = total / (count + 1)
        t.ratio(f"`GetDisclaimerDetails`, {count} item{'s' if count > 1 else ''}: {fmt_time(total)} in all, "
                f"per exchange pair", fmt_time(per_item[count]), fmt_time(pair), per_item[count] / pair, 1.15,
                noise=r.noise("client", [f"BM_Lib_GetDisclaimerDetails/{count}", "BM_Bare_SdBusDisclaimerPair"]))
    slope = (r.real("client", "BM_Lib_GetDisclaimerDetails/100") - r.real("client", "BM_Lib_GetDisclaimerDetails/10")) / 90
    t.ratio("`GetDisclaimerDetails`: cost of one more item (slope from 10 to 100 items)", fmt_time(slope),
            fmt_time(pair), slope / pair, 1.15)
    return t, {"bare": bare, "per_item": per_item, "slope": slope, "pair": pair}


def threads_section(r):
    t = Table()
    rates = {}
    for threads in (1, 2, 4):
        lib = r.value("client", f"BM_Lib_IsServiceAvailable_Threads/threads:{threads}", "items_per_second")
        bare = r.value("client", f"BM_Bare_SdBusCall_Threads/threads:{threads}", "items_per_second")
        rates[threads] = (lib, bare)
        t.ratio(f"Calls per second from {threads} thread{'s' if threads > 1 else ''} "
                f"(`IsServiceAvailable` vs bare sd-bus)", fmt_rate(lib), fmt_rate(bare), lib / bare, 0.9,
                at_most=False, noise=r.noise("client", [f"BM_Lib_IsServiceAvailable_Threads/threads:{threads}",
                                                        f"BM_Bare_SdBusCall_Threads/threads:{threads}"]))
    return t, rates


def store_section(r):
    t = Table()
    messages = 0.0
    for count in (10, 1000):
        base = r.cpu("store", f"BM_Baseline_ReadAndParseAgreements/{count}")
        for method in ("GetDisclaimerItemAgreement", "IsDisclaimerItemExist"):
            key = f"BM_Lib_{method}/{count}"
            lib = r.cpu("store", key)
            messages += r.value("store", key, "bus_messages")
            t.ratio(f"`{method}(id, …, \"TV\")`, cache of {count:,} ids", fmt_time(lib), fmt_time(base), lib / base,
                    1.2, noise=r.noise("store", [key, f"BM_Baseline_ReadAndParseAgreements/{count}"], "cpu_time"))
    base = r.cpu("store", "BM_Baseline_ReadAndParseTitles")
    lib = r.cpu("store", "BM_Lib_GetDisclaimerTitle")
    messages += r.value("store", "BM_Lib_GetDisclaimerTitle", "bus_messages")
    t.ratio("`GetDisclaimerTitle(title, 3)`, 7 titles", fmt_time(lib), fmt_time(base), lib / base, 1.2,
            noise=r.noise("store", ["BM_Lib_GetDisclaimerTitle", "BM_Baseline_ReadAndParseTitles"], "cpu_time"))
    for count in (10, 1000):
        key = f"BM_Baseline_ReadAndParseAgreementsNewReader/{count}"
        if r.has("store", key):
            lib = r.cpu("store", f"BM_Lib_GetDisclaimerItemAgreement/{count}")
            base = r.cpu("store", key)
            t.ratio(f"For comparison: `GetDisclaimerItemAgreement`, cache of {count:,} ids, vs a baseline that makes "
                    f"its JSON reader for each parse", fmt_time(lib), fmt_time(base), lib / base,
                    noise=r.noise("store", [key, f"BM_Lib_GetDisclaimerItemAgreement/{count}"], "cpu_time"))
    control = r.value("client", "BM_Lib_IsServiceAvailable_BusMessages", "bus_msgs_per_call")
    t.plain("Bus messages during all store queries above (a bus monitor counts every message)", f"{messages:.0f}",
            f"`IsServiceAvailable`: {control:.0f} per call", goal="0", verdict="met" if messages == 0 else "**missed**")
    if messages != 0:
        t.missed.append("no bus traffic for store queries")
    return t


def toolkit_section(r):
    t = Table()
    lib = r.real("toolkit", "BM_Toolkit_SendTermsDbusSyncMessage")
    bare = r.real("toolkit", "BM_Bare_GDBusCall")
    t.ratio("`SendTermsDbusSyncMessage` round trip vs bare `g_dbus_connection_call_sync`, same arguments",
            fmt_time(lib), fmt_time(bare), lib / bare, 1.15,
            noise=r.noise("toolkit", ["BM_Toolkit_SendTermsDbusSyncMessage", "BM_Bare_GDBusCall"]))
    for direction, goal in (("Out", 0.9), ("In", 0.9)):
        for size in (1024, 65536, 1048576, 0):
            key = f"{size}"
            if not r.has("toolkit", f"BM_Toolkit_Payload{direction}/{key}"):
                continue
            lib = r.value("toolkit", f"BM_Toolkit_Payload{direction}/{key}", "bytes_per_second")
            bare = r.value("toolkit", f"BM_Bare_GDBusPayload{direction}/{key}", "bytes_per_second")
            actual = r.value("toolkit", f"BM_Toolkit_Payload{direction}/{key}", "payload_bytes")
            label = fmt_size(actual) if size else f"largest the bus takes: {fmt_size(actual)}"
            what = "in the call (out)" if direction == "Out" else "in the reply (in)"
            t.ratio(f"\"a(y)\" payload {what}, {label}", fmt_bytes_rate(lib), fmt_bytes_rate(bare), lib / bare,
                    goal if direction == "Out" else None, at_most=False,
                    noise=r.noise("toolkit", [f"BM_Toolkit_Payload{direction}/{key}",
                                              f"BM_Bare_GDBusPayload{direction}/{key}"]))
    lib = r.value("toolkit", "BM_Toolkit_SendTermsDbusSignal", "items_per_second")
    bare = r.value("toolkit", "BM_Bare_GDBusSignals", "items_per_second")
    t.ratio("Signals per second, emitted and received (`SendTermsDbusSignal` vs `g_dbus_connection_emit_signal`)",
            fmt_rate(lib, "signals/s"), fmt_rate(bare, "signals/s"), lib / bare)
    return t


def log_section(r):
    t = Table()
    written = r.cpu("log", "BM_Log_Written")
    write = r.cpu("log", "BM_Baseline_WriteLine")
    filtered = r.cpu("log", "BM_Log_FilteredOut")
    empty = r.cpu("log", "BM_Baseline_EmptyCall")
    t.ratio("One line written to a file (`DLOG_OUTPUT=file:…`) vs one `write(2)` of the formatted line",
            fmt_time(written), fmt_time(write), written / write)
    t.ratio("One line below the minimum priority (filtered out) vs a call of an empty function",
            fmt_time(filtered), fmt_time(empty), filtered / empty)
    return t


def memory_section(r):
    t = Table()
    key = "BM_Memory_ClientAfterRequests"
    first = r.value("memory", key, "requests_first")
    total = r.value("memory", key, "requests_total")
    rss_first = r.value("memory", key, "rss_kib_first")
    rss_total = r.value("memory", key, "rss_kib_total")
    fds_first = r.value("memory", key, "fds_first")
    fds_total = r.value("memory", key, "fds_total")
    flat_rss = rss_total - rss_first <= max(256, 0.02 * rss_first)
    t.plain(f"Resident size after {first:,.0f} and after {total:,.0f} `IsServiceAvailable` requests",
            f"{rss_first:,.0f} KiB → {rss_total:,.0f} KiB", goal="flat",
            verdict="met" if flat_rss else "**missed**")
    t.plain(f"Open descriptors after {first:,.0f} and after {total:,.0f} requests", f"{fds_first:.0f} → {fds_total:.0f}",
            goal="flat", verdict="met" if fds_first == fds_total else "**missed**")
    if not flat_rss:
        t.missed.append("resident size flat")
    if fds_first != fds_total:
        t.missed.append("descriptors flat")
    pairs = [("client", "BM_Lib_IsServiceAvailable", "client", "BM_Bare_SdBusCall", "`IsServiceAvailable` vs bare sd-bus call"),
             ("client", "BM_Lib_SetCountryCode", "client", "BM_Bare_SdBusTwoCalls", "`SetCountryCode` vs two bare sd-bus calls"),
             ("client", "BM_Lib_GetDisclaimerDetail", "client", "BM_Bare_SdBusDisclaimerPair",
              "`GetDisclaimerDetail` vs two bare sd-bus calls"),
             ("toolkit", "BM_Toolkit_SendTermsDbusSyncMessage", "toolkit", "BM_Bare_GDBusCall",
              "`SendTermsDbusSyncMessage` vs bare GDBus call (both threads of GDBus counted)")]
    for lib_file, lib_key, base_file, base_key, label in pairs:
        lib = r.value(lib_file, lib_key, "allocs_per_call")
        base = r.value(base_file, base_key, "allocs_per_call")
        t.ratio(f"Heap allocations per call: {label}", f"{lib:.0f}", f"{base:.0f}", lib / base)
    return t


def fmt_mib(kib):
    return f"{kib / 1024:,.1f} MiB"


def payload_memory_section(r):
    """One 4,000,000-byte "a(y)" call: toolkit against bare GDBus, server and client, each a fresh process."""
    t = Table()
    runs = (("payload-memory", "Allocators as the system has them"),
            ("payload-memory-malloc", "`G_SLICE=always-malloc` and one malloc arena (the simulator's unit)"))
    for file, setting in runs:
        if file not in r.entries:
            t.plain(setting, "not measured")
            continue
        lib_key, bare_key = "BM_PayloadMemory_Toolkit/4000000", "BM_PayloadMemory_Bare_GDBus/4000000"
        lib = {name: r.value(file, lib_key, name + "_kib") for name in
               ("server_base", "server_peak", "server_after", "server_after_second", "client_base", "client_peak",
                "client_after")}
        bare = {name: r.value(file, bare_key, name + "_kib") for name in lib}
        # Peaks vary by about 0.01% between runs: compared to three decimals.
        t.ratio(f"{setting}: server peak", fmt_mib(lib["server_peak"]), fmt_mib(bare["server_peak"]),
                round(lib["server_peak"] / bare["server_peak"], 3), 1.0)
        t.ratio(f"{setting}: server after the call", fmt_mib(lib["server_after"]),
                fmt_mib(bare["server_after"]), lib["server_after"] / bare["server_after"])
        t.ratio(f"{setting}: server after the call against before it (toolkit: before "
                f"{fmt_mib(lib['server_base'])}; bare: after / before = "
                f"{bare['server_after'] / bare['server_base']:.2f})", fmt_mib(lib["server_after"]),
                fmt_mib(lib["server_base"]), lib["server_after"] / lib["server_base"], 1.2)
        # GDBus reads each message into one buffer of its connection, grows it to the largest message and
        # never shrinks it (bare GDBus keeps it as well): 8 bytes on the wire a payload byte.
        read_buffer = 8 * r.value(file, lib_key, "payload_bytes") / 1024
        kept = lib["server_base"] + read_buffer
        t.ratio(f"{setting}: server after the call against before it plus GDBus's read buffer, which "
                f"keeps the largest message ({fmt_mib(read_buffer)})", fmt_mib(lib["server_after"]), fmt_mib(kept),
                lib["server_after"] / kept, 1.2)
        t.ratio(f"{setting}: server after a second call against after the first (bare: "
                f"{bare['server_after_second'] / bare['server_after']:.2f})", fmt_mib(lib["server_after_second"]),
                fmt_mib(lib["server_after"]), lib["server_after_second"] / lib["server_after"], 1.2)
        lib_growth = lib["client_peak"] - lib["client_base"]
        bare_growth = bare["client_peak"] - bare["client_base"]
        t.ratio(f"{setting}: client growth during the call (peak less before; peaks "
                f"{fmt_mib(lib['client_peak'])} and {fmt_mib(bare['client_peak'])})", fmt_mib(lib_growth),
                fmt_mib(bare_growth), lib_growth / bare_growth)
        t.ratio(f"{setting}: client after the call (before: {fmt_mib(lib['client_base'])} and "
                f"{fmt_mib(bare['client_base'])})", fmt_mib(lib["client_after"]), fmt_mib(bare["client_after"]),
                lib["client_after"] / bare["client_after"])
    return t


def sim_section(r):
    t = Table()
    if "sim" not in r.entries:
        t.plain("Simulated service", "not measured: terms-service-sim was not built")
        return t
    for threads in (1, 4):
        key = f"BM_Lib_GetDisclaimerDetail_Threads/threads:{threads}"
        sim = r.value("sim", key, "items_per_second")
        minimal = r.value("client", key, "items_per_second")
        t.ratio(f"Requests per second served to {threads} client{'s' if threads > 1 else ''} "
                f"(`GetDisclaimerDetail`: \"is service available\" + \"get disclaimer by order\")",
                fmt_rate(sim, "requests/s"), fmt_rate(minimal, "requests/s") + " (minimal service)", sim / minimal)
    return t


def consent_section(r):
    t = Table()
    if "consent" not in r.entries:
        t.plain("Consent library", "not measured: terms-service-sim was not built")
        return t
    lib = r.real("consent", "BM_Consent_Status")
    calls = r.real("consent", "BM_Lib_StatusCalls")
    t.ratio("`ConsentGetStatus`, requester 0 of the sample catalogue, vs the terms client calls it makes "
            "(`IsServiceAvailable` + `GetDisclaimerDetails` + `GetRevisedDisclaimers`)", fmt_time(lib),
            fmt_time(calls), lib / calls, 1.1, noise=r.noise("consent", ["BM_Consent_Status", "BM_Lib_StatusCalls"]))
    event = r.value("consent", "BM_Consent_StoreChangeToEvent/manual_time", "latency_median_ns")
    wakeup = r.value("consent", "BM_Bare_StoreChangeToInotifyWakeup/manual_time", "latency_median_ns")
    met = event <= 5e6
    t.plain("Store change to change event, median (goal: at most 5 ms), vs a bare inotify wakeup on the key's "
            "directory", fmt_time(event), fmt_time(wakeup), f"{event / wakeup:.2f}", "≤ 5 ms",
            "met" if met else "**missed**")
    if not met:
        t.missed.append("store change to event within 5 ms")
    for lib_key, base_key, label in (
            ("BM_Consent_IsServiceAvailableAsync", "BM_Lib_IsServiceAvailable",
             "`ConsentIsServiceAvailableAsync` (worker, then main context) vs blocking `IsServiceAvailable`"),
            ("BM_Consent_StatusAsync", "BM_Consent_Status", "`ConsentGetStatusAsync` vs blocking `ConsentGetStatus`")):
        lib = r.real("consent", lib_key)
        base = r.real("consent", base_key)
        t.ratio(label, fmt_time(lib), fmt_time(base), lib / base, 1.1, noise=r.noise("consent", [lib_key, base_key]))
    return t


def extra_section(r):
    t = Table()
    if "client-logfile" in r.entries:
        for lib_key, base_key, label in (
                ("BM_Lib_IsServiceAvailable", "BM_Bare_SdBusCall", "`IsServiceAvailable()` vs one bare round trip"),
                ("BM_Lib_SetCountryCode", "BM_Bare_SdBusTwoCalls", "`SetCountryCode` vs two bare round trips")):
            lib = r.real("client-logfile", lib_key)
            base = r.real("client-logfile", base_key)
            t.ratio(f"With the library's lines written to a file: {label}", fmt_time(lib), fmt_time(base), lib / base)
        lib = r.real("client-logfile", "BM_Lib_GetDisclaimerDetails/10")
        none = r.real("client", "BM_Lib_GetDisclaimerDetails/10")
        t.ratio("With lines written to a file: `GetDisclaimerDetails`, 10 items, vs the same without output",
                fmt_time(lib), fmt_time(none), lib / none)
    if "store-logfile" in r.entries:
        for key, base_key, label in (
                ("BM_Lib_GetDisclaimerItemAgreement/10", "BM_Baseline_ReadAndParseAgreements/10", "10 ids"),
                ("BM_Lib_GetDisclaimerItemAgreement/1000", "BM_Baseline_ReadAndParseAgreements/1000", "1,000 ids")):
            lib = r.cpu("store-logfile", key)
            base = r.cpu("store-logfile", base_key)
            t.ratio(f"With lines written to a file: `GetDisclaimerItemAgreement`, cache of {label}", fmt_time(lib),
                    fmt_time(base), lib / base)
    fresh = r.real("client", "BM_Bare_SdBusNewConnectionPerCall")
    bare = r.real("client", "BM_Bare_SdBusCall")
    t.ratio("A new sd-bus connection per call vs a reused one (why connections are reused)", fmt_time(fresh),
            fmt_time(bare), fresh / bare)
    gdbus = r.real("toolkit", "BM_Bare_GDBusCall")
    t.ratio("Bare GDBus `g_dbus_connection_call_sync` vs bare sd-bus call (same service, same bytes)", fmt_time(gdbus),
            fmt_time(bare), gdbus / bare)
    return t


# ---- The page ----

def reading(r, client, rates, tables, load):
    missed = [label for table in tables for label in table.missed]
    lines = []
    try:
        busy = float(load.split()[0]) >= (os.cpu_count() or 1) / 2
    except (ValueError, IndexError):
        busy = False
    if busy:
        lines.append(f"- **This run started on a busy machine** (load average {load.split()[0]} on "
                     f"{os.cpu_count()} processors): other processes took turns with the bus daemon, the service "
                     f"and the clients, so the wall-clock ratios of the bus rows carry the spread shown in brackets "
                     f"and a missed goal there may be noise. CPU-time rows (store, log) and counts (bus messages, "
                     f"allocations, descriptors) are much less affected. Rerun `scripts/bench.sh` on a quiet machine to "
                     f"judge the bus rows; the notes below give figures of a quieter run.")
    lines.append(f"- A bare sd-bus round trip to the minimal service took {fmt_time(client['bare'])} in this run; "
                 f"every client request is one or two of them, and the library's own work (JSON in and out, the "
                 f"connection guard, its log calls with output off) is what the ratios above 1.00 show.")
    per_item = client["per_item"]
    lines.append(f"- `GetDisclaimerDetails` is linear in the count: per exchange pair {fmt_time(per_item[1])} with 1 "
                 f"item, {fmt_time(per_item[10])} with 10 and {fmt_time(per_item[100])} with 100; one more item costs "
                 f"{fmt_time(client['slope'])}, against {fmt_time(client['pair'])} for two bare round trips.")
    one_lib, one_bare = rates[1]
    four_lib, four_bare = rates[4]
    lines.append(f"- Threads: from 1 to 4 threads the library goes from {fmt_rate(one_lib)} to {fmt_rate(four_lib)} "
                 f"(bare: {fmt_rate(one_bare)} to {fmt_rate(four_bare)}). On 2 cores the bus daemon, the service and "
                 f"the clients share the processors, so from 2 threads on the rate follows the CPU each call takes, "
                 f"and the client's share of it (mostly decoding the JSON reply) shows; see the notes.")
    if missed:
        lines.append("- Goals missed in this run: " + "; ".join(missed) + ". See the notes below.")
    else:
        lines.append("- Every goal was met in this run.")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--results", required=True)
    parser.add_argument("--output", required=True)
    parser.add_argument("--date", default=datetime.datetime.utcnow().strftime("%Y-%m-%d %H:%M UTC"))
    parser.add_argument("--load", default="")
    parser.add_argument("--notes", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "notes.md"))
    args = parser.parse_args()

    r = Results(args.results)
    machine = machine_facts()
    client, client_data = client_section(r)
    threads, rates = threads_section(r)
    store = store_section(r)
    toolkit = toolkit_section(r)
    log = log_section(r)
    memory = memory_section(r)
    payload_memory = payload_memory_section(r)
    sim = sim_section(r)
    extra = extra_section(r)
    consent = consent_section(r)
    tables = [client, threads, store, toolkit, log, memory, payload_memory, sim, consent]

    out = []
    out.append("# Performance\n")
    out.append("Written by `scripts/bench.sh` from one run; every ratio is library / baseline, both measured in "
               "that run on the same private bus against the same service. Absolute times drift by a quarter "
               "between runs on this kind of machine; the ratios are what the goals judge.\n")
    out.append("## Machine and run\n")
    out.append(f"- Date: {args.date}\n- Processors: {machine['cpus']} × {machine['model']}\n"
               f"- Memory: {machine['memory']}\n- Kernel: {machine['kernel']}; {machine['daemon']}\n"
               f"- Load average when the run started: {args.load or 'unknown'} (the machine may be shared)\n")
    out.append("- Bus: a private `dbus-daemon` (system bus configuration, default limits: 32 MiB per message).\n"
               "- Service: `bench-service`, a minimal sd-bus program that owns \"com.velmora.tv.termsclient\" and "
               "answers every call at once with one fixed \"(sussa(y))\" reply (a disclaimer of about 300 bytes of "
               "JSON with \"result\" true); baselines and library get the same reply.\n"
               "- Baselines: bare `sd_bus_call_method` (client requests; one connection per thread, as the "
               "framework stand-in keeps) and bare `g_dbus_connection_call_sync` / `g_dbus_connection_emit_signal` "
               "(toolkit), sending the same bytes the library sends.\n"
               "- Log output: `DLOG_OUTPUT=none` for every main figure (the device's log is an in-memory ring "
               "buffer, so its cost is not that of a file). The library still makes all its log calls; the cost of "
               "writing them to a file is shown as extra rows.\n"
               "- Figures: the median of 7 repetitions interleaved at random (a round trip here is bimodal, fast "
               "while other work keeps the processors awake and slow when each hop wakes an idle one, so the "
               "fastest repetition says more about the neighbours than about the code); CPU times the lowest; "
               "payloads of 1 MiB and more: 3 repetitions of one call, "
               "64 KiB: one run of 10 calls. The spread in brackets is the larger "
               "coefficient of variation of the two figures' repetitions. Bus figures are wall-clock time; store and log figures are CPU time of "
               "the calling thread (they never wait for another process, and wall-clock time on a shared machine "
               "would count other processes' work).\n")
    out.append("## Reading\n")
    out.append(reading(r, client_data, rates, tables, args.load))
    sections = [
        ("Client requests against bare sd-bus round trips", client),
        ("Calls per second from several threads", threads),
        ("Queries answered from the configuration store", store),
        ("Bus server toolkit against bare GDBus", toolkit),
        ("Logging", log),
        ("Memory", memory),
        ("Memory of one call with a 4,000,000-byte \"a(y)\" payload: toolkit against bare GDBus", payload_memory),
        ("The simulated service", sim),
        ("Consent library on the simulated service", consent),
        ("Extra rows", extra),
    ]
    for title, table in sections:
        out.append(f"## {title}\n")
        out.append(table.render())
    if os.path.exists(args.notes):
        with open(args.notes) as notes:
            out.append(notes.read())
    with open(args.output, "w") as handle:
        handle.write("\n".join(out))


if __name__ == "__main__":
    main()
