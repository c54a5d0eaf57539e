#!/usr/bin/env python3
"""Benchmarks of LxAudioCore against the tools a user would pick instead.

Builds the benchmark programs (Release), makes its inputs with sox in a
temporary directory (deleted at the end), runs our code and each anchor on the
same input side by side, and prints one table. Ratios are anchor time / our
time: above 1 we are faster. Timed are only the operations themselves (ours in
process, the anchors as whole processes).

By default the ratios and verdicts use CPU time (user + system) of the timed
operation, which other jobs on a shared machine do not inflate; the wall-clock
ratio is shown beside it. The two-core compression row is judged on wall-clock
time, since only wall-clock time shows parallel work. Use --clock wall on a
quiet machine to judge everything on wall-clock time.

Two sections are always judged on wall-clock time, with the CPU ratio in the
notes: the resampler rows, and the whole-process rows of the lxaudio tool
("cli": each command as a user runs it, opening and saving its project,
against sox, cp, oggenc and oggdec as whole processes), since what a user
waits for is the wall clock.

The long-project rows ("long") build a 1-hour and a 10-hour mono project
(every page Vorbis, as a compressed lecture is) and time whole lxaudio
processes on each: info, an edit (which saves the project), and the start of
playback; each must take under a second on the long one, and the peak memory
of each must not grow with the project's length.
"""

import argparse
import datetime
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MIB = 1024 * 1024


def log(message):
    print(message, file=sys.stderr, flush=True)


class Timed:
    """Wall-clock and CPU seconds of one run."""

    def __init__(self, wall, cpu, extra=None):
        self.wall = wall
        self.cpu = cpu
        self.extra = extra or {}


def run_process(cmd, env=None, stdout_path=None):
    """Runs cmd; returns (wall seconds, CPU seconds, peak RSS KiB, stdout text)."""
    err_file = tempfile.TemporaryFile()
    out_file = open(stdout_path, "wb") if stdout_path else tempfile.TemporaryFile()
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, stdout=out_file, stderr=err_file, env=env)
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    err_file.seek(0)
    err = err_file.read().decode(errors="replace")
    text = ""
    if not stdout_path:
        out_file.seek(0)
        text = out_file.read().decode(errors="replace")
    out_file.close()
    err_file.close()
    if proc.returncode != 0:
        raise RuntimeError("%s failed (exit %d):\n%s" % (" ".join(cmd), proc.returncode, err[-2000:]))
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss, text


def run_ours(tool, args, env):
    """Runs LxBenchTool; returns its JSON result."""
    _, _, _, text = run_process([tool] + args, env=env)
    return json.loads(text.strip().splitlines()[-1])


def anchor(cmd, env=None):
    wall, cpu, rss, _ = run_process(cmd, env=env)
    return Timed(wall, cpu, {"rss_kib": rss})


def median_timed(runs):
    return Timed(statistics.median(r.wall for r in runs), statistics.median(r.cpu for r in runs))


def write_wav(path, source_wav, target_bytes):
    """A 44-byte-header WAV of target_bytes bytes (header included) whose audio
    repeats the audio of source_wav (a canonical 44-byte-header WAV)."""
    with open(source_wav, "rb") as f:
        header = bytearray(f.read(44))
        data = f.read()
    block_align = header[32] | (header[33] << 8)
    data_bytes = (target_bytes - 44) // block_align * block_align
    header[4:8] = (data_bytes + 36).to_bytes(4, "little")
    header[40:44] = data_bytes.to_bytes(4, "little")
    with open(path, "wb") as out:
        out.write(header)
        left = data_bytes
        while left > 0:
            piece = data[: min(len(data), left)]
            out.write(piece)
            left -= len(piece)


def prime_memory(directory, mib):
    """Writes and deletes mib MiB of zeros in directory.

    On a virtual machine the first write into guest memory that was never
    touched costs the host a fault per page (measured here: about 4.5 s of
    system time per GiB written to new page cache, against 1 s per GiB into
    memory that was used and freed). Whichever side of a row runs second would
    reuse what the first freed; priming first gives both the same memory."""
    path = os.path.join(directory, "prime.bin")
    block = bytes(MIB)
    with open(path, "wb") as f:
        for _ in range(mib):
            f.write(block)
    os.remove(path)


class Table:
    def __init__(self, clock):
        self.clock = clock
        self.rows = []

    def add(self, name, ours, anchor_text, ratio, wall_ratio, target, verdict, notes=""):
        self.rows.append([name, ours, anchor_text, ratio, wall_ratio, target, verdict, notes])

    HEADER = ["row", "ours", "anchor", "ratio", "wall ratio", "target", "result", "notes"]

    def text(self):
        rows = [self.HEADER] + self.rows
        widths = [max(len(str(r[i])) for r in rows) for i in range(len(self.HEADER))]
        lines = []
        for n, r in enumerate(rows):
            lines.append("  ".join(str(c).ljust(widths[i]) for i, c in enumerate(r)).rstrip())
            if n == 0:
                lines.append("  ".join("-" * w for w in widths))
        return "\n".join(lines)

    def markdown(self):
        lines = ["| " + " | ".join(self.HEADER) + " |", "|" + "---|" * len(self.HEADER)]
        for r in self.rows:
            lines.append("| " + " | ".join(str(c).replace("|", "/") for c in r) + " |")
        return "\n".join(lines)


def fmt_s(seconds):
    if seconds >= 1.0:
        return "%.2f s" % seconds
    if seconds >= 1e-3:
        return "%.1f ms" % (seconds * 1e3)
    return "%.1f us" % (seconds * 1e6)


def ratio_text(value):
    return "%.2fx" % value


def verdict_at_least(value, target):
    if value >= target:
        return "met"
    return "missed by %.1fx" % (target / value) if value > 0 else "missed"


def verdict_below(value, limit):
    if value < limit:
        return "met"
    return "missed by %.1fx" % (value / limit)


def ours_wall_speedup(serial_runs, parallel):
    return median_timed(serial_runs).wall / parallel.wall


def pick(timed, clock):
    return timed.cpu if clock == "cpu" else timed.wall


def compare_row(table, name, ours, anchor_timed, anchor_name, target, clock, notes=""):
    r = pick(anchor_timed, clock) / pick(ours, clock)
    rw = anchor_timed.wall / ours.wall
    verdict = verdict_at_least(r, target) if target else "-"
    table.add(name, fmt_s(pick(ours, clock)), "%s %s" % (anchor_name, fmt_s(pick(anchor_timed, clock))),
              ratio_text(r), ratio_text(rw), ">= %.1fx" % target if target else "-", verdict, notes)


def compare_row_wall(table, name, ours, anchor_timed, anchor_name, target, notes=""):
    """A row judged on wall-clock time whatever --clock says; the CPU ratio goes into the notes."""
    rw = anchor_timed.wall / ours.wall
    rc = anchor_timed.cpu / ours.cpu if ours.cpu > 0 else float("inf")
    verdict = verdict_at_least(rw, target) if target else "-"
    note = "CPU: ours %s, anchor %s, ratio %s" % (fmt_s(ours.cpu), fmt_s(anchor_timed.cpu), ratio_text(rc))
    table.add(name, fmt_s(ours.wall) + " wall", "%s %s wall" % (anchor_name, fmt_s(anchor_timed.wall)),
              ratio_text(rw), ratio_text(rw), ">= %.1fx (wall)" % target if target else "-", verdict,
              note + ("; " + notes if notes else ""))


def gbench_results(path):
    with open(path) as f:
        data = json.load(f)
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    results = {}
    for b in data["benchmarks"]:
        base = b.get("run_name", b["name"]).split("/")[0]
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        unit = scale[b.get("time_unit", "ns")]
        entry = dict(b)
        entry["wall"] = b["real_time"] * unit
        entry["cpu"] = b["cpu_time"] * unit
        # A median aggregate wins over single repetitions.
        if base not in results or b.get("aggregate_name") == "median":
            results[base] = entry
    return results, data.get("context", {})


def peak_rss_command(cmd, rss_path):
    """cmd run under GNU time, which writes the peak RSS (KiB) of cmd alone into
    rss_path. os.wait4's ru_maxrss of a process started from this script would
    not do: Linux carries the high-water mark of the image a process replaces
    over an exec, so every child would show at least this Python's own RSS."""
    return ["/usr/bin/time", "-f", "%M", "-o", rss_path] + cmd


def run_measured(cmd, env, rss_path, until=None):
    """Runs cmd under GNU time; returns (seconds until a line starting with
    until appeared on its stderr (None without until), wall seconds of the whole
    process, CPU seconds, peak RSS KiB of cmd)."""
    start = time.perf_counter()
    proc = subprocess.Popen(peak_rss_command(cmd, rss_path), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                            env=env)
    seen = None
    err = []
    for line in proc.stderr:
        text = line.decode(errors="replace")
        err.append(text)
        if until is not None and seen is None and text.startswith(until):
            seen = time.perf_counter() - start
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.perf_counter() - start
    proc.stderr.close()
    code = os.waitstatus_to_exitcode(status)
    if code != 0 or (until is not None and seen is None):
        raise RuntimeError("%s failed (exit %d):\n%s" % (" ".join(cmd), code, "".join(err)[-2000:]))
    with open(rss_path) as f:
        rss = int(f.read().split()[-1])
    return seen, wall, usage.ru_utime + usage.ru_stime, rss


def evict_from_cache(path):
    """Drops one file's pages from the page cache (written back first), so that
    the next run reads it from the disk; other files stay cached."""
    fd = os.open(path, os.O_RDONLY)
    try:
        os.fsync(fd)
        os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
    finally:
        os.close(fd)


def long_rows(table, tool, lxaudio, work, env, args):
    """A 1-hour and a long (10-hour) mono project, every page Vorbis: whole lxaudio
    processes on each (info, an edit that saves, the start of playback), judged
    on the long one's wall clock (< 1 s each) and on peak memory that does not
    grow with the length (the long one's peak within 1.25x + 4 MiB of the short one's,
    as the memory rows judge)."""
    log("== long-project rows (1 h and %d h mono, whole lxaudio processes)" % args.long_hours)
    long_dir = os.path.join(work, "long")
    os.makedirs(long_dir)
    sim_env = dict(env, LXAUDIO_WAVE_DRIVER="simulated")
    # About 36.6 MB a mono hour; each edit writes the project once more.
    prime_memory(long_dir, (args.cli_reps + 2) * 37 * (args.long_hours + 1))
    results = {}
    for hours in (1, args.long_hours):
        path = os.path.join(long_dir, "long-%dh.lxp" % hours)
        built = run_ours(tool, ["long-project", str(hours), path], env)
        # It must be a project lxaudio takes as whole: verified, undamaged, all Vorbis.
        _, _, _, text = run_process([lxaudio, "info", "--json", path], env=env)
        info = json.loads(text)
        clip1 = next(c for c in info["clips"] if c["id"] == 1)
        if (not info["integrity"]["verified"] or info["integrity"]["damaged"] or info["pages"]["raw"] != 0 or
                info["pages"]["compressed"] != built["pages"] or abs(clip1["seconds"] - hours * 3600) > 2):
            raise RuntimeError("the %d h project is not what it should be: %s" % (hours, text[:400]))
        middle = hours * 1800  # seconds into the long clip
        span = ["%ds" % middle, "%ds" % (middle + 1)]
        rss_path = os.path.join(long_dir, "rss.txt")
        runs = {"info": [], "edit": [], "play": []}
        play_whole = []
        for _ in range(args.cli_reps):
            _, wall, cpu, rss = run_measured([lxaudio, "info", path], env, rss_path)
            runs["info"].append((wall, cpu, rss))
            # Deletes one second in the middle of the long clip: a new clip, and
            # the project saved atomically (written, forced to disk, renamed).
            _, wall, cpu, rss = run_measured([lxaudio, "-q", "edit", path, "1", "delete"] + span, env, rss_path)
            runs["edit"].append((wall, cpu, rss))
            # Playback from the middle of the long clip on the simulated driver
            # (no sound card; it completes buffers at once): the time until the
            # tool says "playing clip" (printed once the device has started,
            # so the project is open and the first buffers are decoded), then
            # one second of audio played at once and the process ends.
            seen, wall, cpu, rss = run_measured([lxaudio, "play", path, "1", "--from", span[0], "--to", span[1]],
                                                sim_env, rss_path, until="playing clip")
            runs["play"].append((seen, cpu, rss))
            play_whole.append(wall)
        # The same on a cold page cache (this file only evicted): what a user
        # waits for the first time a project is opened after a while.
        cold = {}
        evict_from_cache(path)
        cold["info"] = run_measured([lxaudio, "info", path], env, rss_path)[1]
        evict_from_cache(path)
        cold["edit"] = run_measured([lxaudio, "-q", "edit", path, "1", "delete"] + span, env, rss_path)[1]
        evict_from_cache(path)
        cold["play"] = run_measured([lxaudio, "play", path, "1", "--from", span[0], "--to", span[1]], sim_env,
                                    rss_path, until="playing clip")[0]
        results[hours] = {
            "built": built,
            "cold": cold,
            "play_whole": statistics.median(play_whole),
            "median": {k: (statistics.median(r[0] for r in v), statistics.median(r[1] for r in v),
                           max(r[2] for r in v) / 1024.0) for k, v in runs.items()},
        }
        os.remove(path)
    short, large = results[1], results[args.long_hours]
    b = large["built"]
    table.add("long project: %d h mono, built" % args.long_hours, "%.1f MiB" % (b["project_bytes"] / MIB),
              "1 h: %.1f MiB" % (short["built"]["project_bytes"] / MIB), "-", "-", "-", "-",
              "%d Vorbis pages of 2 s (%d distinct, copied as stored), clips of %d h, 10 min, 1 min; built in %s "
              "(encoding %s, copying %s, verified save %s)" % (
                  b["pages"], b["distinct_pages"], args.long_hours, fmt_s(b["seconds"]), fmt_s(b["encode_seconds"]),
                  fmt_s(b["copy_seconds"]), fmt_s(b["save_seconds"])))
    names = {"info": "lxaudio info", "edit": "lxaudio edit (delete 1 s mid-clip, saved)",
             "play": "lxaudio play: start, from mid-clip"}
    for key in ("info", "edit", "play"):
        wall, cpu, rss = large["median"][key]
        swall, _, srss = short["median"][key]
        note = "CPU %s; peak RSS %.1f MiB (1 h: %.1f MiB); cold cache %s (1 h: %s)" % (
            fmt_s(cpu), rss, srss, fmt_s(large["cold"][key]), fmt_s(short["cold"][key]))
        if key == "play":
            note += "; whole process with 1 s played at once: %s" % fmt_s(large["play_whole"])
        table.add("%s, %d h mono" % (names[key], args.long_hours), fmt_s(wall) + " wall", "1 h: %s wall" % fmt_s(swall),
                  "-", "-", "< 1 s (wall)", verdict_below(wall, 1.0), note)
    peaks = [(key, large["median"][key][2], short["median"][key][2]) for key in ("info", "edit", "play")]
    flat = all(big <= small * 1.25 + 4 for _, big, small in peaks)
    worst = max(peaks, key=lambda p: p[1] - p[2])
    table.add("memory: info, edit, play of %d h mono" % args.long_hours,
              " / ".join("%.1f" % p[1] for p in peaks) + " MiB peak RSS",
              "1 h: " + " / ".join("%.1f" % p[2] for p in peaks) + " MiB", "-", "-",
              "independent of length (<= 1.25x + 4 MiB of 1 h)",
              "met" if flat else "missed: %s grows with length" % worst[0],
              "largest growth: %s, +%.1f MiB for %d more hours" % (worst[0], worst[1] - worst[2], args.long_hours - 1))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build-bench"))
    parser.add_argument("--no-build", action="store_true", help="use the programs already built")
    parser.add_argument("--jobs", default="2")
    parser.add_argument("--reps", type=int, default=3, help="runs of each fast file row (median)")
    parser.add_argument("--compress-reps", type=int, default=2, help="runs of the compression row")
    parser.add_argument("--seconds", type=int, default=600, help="length of the 10-minute inputs")
    parser.add_argument("--store-mib", type=int, default=1024, help="store size of the save/load row")
    parser.add_argument("--memory-mib", type=int, default=2048, help="WAV size of the memory row")
    parser.add_argument("--capture-seconds", type=int, default=3600, help="recording length of the memory row")
    parser.add_argument("--clock", choices=["cpu", "wall"], default="cpu")
    parser.add_argument("--tmp", default=None, help="parent of the temporary directory")
    parser.add_argument("--markdown", default=None, help="also write the table as Markdown to this file")
    parser.add_argument("--cli-reps", type=int, default=3, help="runs of each fast lxaudio row (median)")
    parser.add_argument("--long-hours", type=int, default=10, help="length of the long project (the short one: 1 h)")
    parser.add_argument("--only", default=None,
                        help="comma-separated rows: micro,import,compress,saveload,memory,cli,long")
    args = parser.parse_args()
    only = set(args.only.split(",")) if args.only else None

    def wanted(part):
        return only is None or part in only

    for tool in ("sox", "oggenc", "oggdec", "cp") + (("/usr/bin/time",) if wanted("long") else ()):
        if shutil.which(tool) is None:
            sys.exit("compare.py: %s is missing (make bench installs it)" % tool)

    if not args.no_build:
        log("== building (Release) in %s" % args.build_dir)
        subprocess.run(["cmake", "-S", ROOT, "-B", args.build_dir, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                        "-DLX_BUILD_BENCHMARKS=ON"], check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", args.build_dir, "-j", args.jobs, "--target", "LxBenchMicro",
                        "LxBenchTool", "lxaudio"], check=True)
    micro = os.path.join(args.build_dir, "bin", "LxBenchMicro")
    tool = os.path.join(args.build_dir, "bin", "LxBenchTool")
    lxaudio = os.path.join(args.build_dir, "bin", "lxaudio")

    work = tempfile.mkdtemp(prefix="lxbench-", dir=args.tmp)
    store_tmp = os.path.join(work, "stores")
    os.makedirs(store_tmp)
    env = dict(os.environ, TMPDIR=store_tmp)
    table = Table(args.clock)
    clock = args.clock
    started = time.time()
    load_before = os.getloadavg()
    try:
        seconds = args.seconds
        length = "%d min" % (seconds // 60) if seconds % 60 == 0 else "%d s" % seconds
        synth = ["synth", str(seconds), "pinknoise", "pinknoise", "synth", str(seconds), "sine", "mix",
                 "220-660", "sine", "mix", "330-990", "tremolo", "0.3", "60", "gain", "-8"]
        w48 = os.path.join(work, "in48.wav")
        w44 = os.path.join(work, "in44.wav")
        if wanted("import") or wanted("compress") or wanted("memory") or wanted("cli"):
            log("== making inputs with sox (%d s)" % seconds)
            subprocess.run(["sox", "-n", "-r", "48000", "-b", "24", "-c", "2", w48] + synth, check=True)
            subprocess.run(["sox", "-n", "-r", "44100", "-b", "16", "-c", "2", w44] + synth, check=True)

        # --- micro-benchmarks: resampling, reading, editing, thumbnails -----------------
        if wanted("micro"):
            log("== micro-benchmarks")
            out_json = os.path.join(work, "micro.json")
            run_process([micro, "--benchmark_out=" + out_json, "--benchmark_out_format=json"], env=env,
                        stdout_path=os.path.join(work, "micro.txt"))
            res, _ = gbench_results(out_json)
            # Resampling is judged on wall-clock time, the CPU ratio beside it.
            ours = res["BM_Resample_LxAudioResampler"]
            ours_t = Timed(ours["wall"], ours["cpu"])
            for key, name, target in (("BM_Resample_SoxrHQ", "libsoxr HQ", 1.0),
                                      ("BM_Resample_SoxrVHQ", "libsoxr VHQ", None),
                                      ("BM_Resample_SrcSincBest", "libsamplerate SINC_BEST", None),
                                      ("BM_Resample_SrcSincMedium", "libsamplerate SINC_MEDIUM", None)):
                a = res[key]
                compare_row_wall(table, "resample 48k->44.1k stereo 120 s", ours_t, Timed(a["wall"], a["cpu"]), name,
                                 target, "%.0fx real time" % (120.0 / ours_t.wall))
            # The mono rows exist once the benchmarks have them; older builds skip them.
            if "BM_Resample_LxAudioResampler_Mono" in res and "BM_Resample_SoxrHQ_Mono" in res:
                mono = res["BM_Resample_LxAudioResampler_Mono"]
                mono_t = Timed(mono["wall"], mono["cpu"])
                a = res["BM_Resample_SoxrHQ_Mono"]
                compare_row_wall(table, "resample 48k->44.1k mono 120 s", mono_t, Timed(a["wall"], a["cpu"]),
                                 "libsoxr HQ", 1.0, "%.0fx real time" % (120.0 / mono_t.wall))
            else:
                log("   (no mono resampling benchmarks in this build: mono row skipped)")
            for key, name, target in (("BM_Read_UnitGain", "read, unit gain", 2000.0),
                                      ("BM_Read_Gain", "read, gain 0.5", 1000.0)):
                r = res[key]
                factor = 60.0 / (r["cpu"] if clock == "cpu" else r["wall"])
                table.add(name, "%.0fx real time" % factor, "-", "-", "-", ">= %.0fx real time" % target,
                          verdict_at_least(factor / target, 1.0), "60 s stereo clip, 100 ms per call")
            for op in ("Delete", "InsertAt", "AddEffect", "Undo"):
                long_us = res["BM_Edit_%s_2h" % op]["median_us"]
                short_us = res["BM_Edit_%s_1min" % op]["median_us"]
                table.add("edit %s, 2 h mono, 1000 ranges" % op, "%.1f us" % long_us,
                          "1-min clip %.1f us" % short_us, "-", "-", "< 1 ms (median)",
                          verdict_below(long_us, 1000.0), "2 h / 1 min = %.1fx" % (long_us / short_us))
            for key, name in (("BM_Thumbnail_2h_Cold", "thumbnail 2 h, cold"),
                              ("BM_Thumbnail_2h_Warm", "thumbnail 2 h, warm")):
                t = pick(Timed(res[key]["wall"], res[key]["cpu"]), clock)
                table.add(name, fmt_s(t), "-", "-", "-", "< 20 ms", verdict_below(t, 0.020),
                          "%d points" % res[key]["points"])

        # --- import -------------------------------------------------------------------------
        if wanted("import"):
            log("== import rows")
            # Each run writes about one input's worth; three runs of four writers.
            prime_memory(work, 12 * (os.path.getsize(w44) // MIB + 1))
            ours_runs, sox_runs, ours44_runs, cp_runs = [], [], [], []
            raw = os.path.join(work, "sox-out.raw")
            copy = os.path.join(work, "cp-out.wav")
            for _ in range(args.reps):
                r = run_ours(tool, ["import", w48], env)
                ours_runs.append(Timed(r["seconds"], r["cpu_seconds"]))
                sox_runs.append(anchor(["sox", w48, "-r", "44100", "-b", "16", raw]))
                os.remove(raw)
                r = run_ours(tool, ["import", w44], env)
                ours44_runs.append(Timed(r["seconds"], r["cpu_seconds"]))
                cp_runs.append(anchor(["cp", w44, copy]))
                os.remove(copy)
            # For information: the target is on the whole-process lxaudio row.
            compare_row(table, "import 48k/24-bit stereo %s" % length, median_timed(ours_runs), median_timed(sox_runs),
                        "sox -r 44100 -b 16", None, clock)
            compare_row(table, "import-44 44.1k/16-bit stereo %s" % length, median_timed(ours44_runs),
                        median_timed(cp_runs), "cp", 0.5, clock)

        # --- compression and decoding ------------------------------------------------------
        if wanted("compress"):
            log("== compression rows")
            comp_runs, dec_runs, enc_runs, oggdec_runs = [], [], [], []
            ogg = os.path.join(work, "oggenc.ogg")
            decoded = os.path.join(work, "oggdec.wav")
            enc_bytes = 0
            serial_hashes = None
            for _ in range(args.compress_reps):
                r = run_ours(tool, ["compress", w44], env)
                comp_runs.append(Timed(r["compress_seconds"], r["compress_cpu_seconds"]))
                dec_runs.append(Timed(r["decode_seconds"], r["decode_cpu_seconds"]))
                enc_bytes = r["enc_bytes"]
                serial_hashes = (r["enc_hash"], r["pcm_hash"])
                enc_runs.append(anchor(["oggenc", "-Q", "-b", "128", "-o", ogg, w44]))
                oggdec_runs.append(anchor(["oggdec", "-Q", "-o", decoded, ogg]))
                os.remove(decoded)
            ogg_bytes = os.path.getsize(ogg)
            # For information: the targets are on the lxaudio rows, against
            # oggenc at the managed bitrate the store's encoder is fixed to.
            compare_row(table, "compress %s stereo (CompressAllPages)" % length, median_timed(comp_runs),
                        median_timed(enc_runs), "oggenc -b 128", None, clock,
                        "enc.lxa %.1f MB, oggenc %.1f MB" % (enc_bytes / 1e6, ogg_bytes / 1e6))

            # Every core: CompressAllPagesInParallel on as many threads as there
            # are cores, against single-threaded oggenc on the same file (oggenc
            # has no threads), judged on wall-clock time.
            cores = os.cpu_count() or 1
            par_runs = []
            par_hashes = None
            # One run less than the serial row: it is the longest part of the table.
            for _ in range(max(1, args.compress_reps - 1)):
                p = run_ours(tool, ["parallel-compress", w44, str(cores)], env)
                par_runs.append(Timed(p["seconds"], p["cpu_seconds"]))
                par_hashes = (p["enc_hash"], p["pcm_hash"])
            par = median_timed(par_runs)
            enc_t = median_timed(enc_runs)
            identical = par_hashes == serial_hashes
            wall_ratio = enc_t.wall / par.wall
            verdict = "-" if identical else "pages differ"
            table.add("compress %s, every core (%d threads)" % (length, cores), fmt_s(par.wall) + " wall",
                      "oggenc -b 128 %s wall" % fmt_s(enc_t.wall), "-", ratio_text(wall_ratio), "-",
                      verdict, "CompressAllPagesInParallel; %.2fx faster than CompressAllPages; "
                      "enc.lxa and pcm.lxa byte-identical: %s" % (ours_wall_speedup(comp_runs, par), identical))
            compare_row(table, "decode %s stereo (GetNextPCMData)" % length, median_timed(dec_runs),
                        median_timed(oggdec_runs), "oggdec", 0.9, clock)

        # --- save and load -------------------------------------------------------------------
        if wanted("saveload"):
            log("== save/load rows (%d MiB store)" % args.store_mib)
            save_dir = os.path.join(work, "save")
            os.makedirs(save_dir)
            # The store, its saved copy, the loaded store and cp's copy.
            prime_memory(save_dir, 4 * args.store_mib)
            w_runs, r_runs, vw_runs, vr_runs, cp_runs = [], [], [], [], []
            store_bytes = 0
            for _ in range(max(1, args.reps - 1)):
                r = run_ours(tool, ["saveload", str(args.store_mib), save_dir], env)
                w_runs.append(Timed(r["write_seconds"], r["write_cpu_seconds"]))
                r_runs.append(Timed(r["read_seconds"], r["read_cpu_seconds"]))
                vw_runs.append(Timed(r["verified_write_seconds"], r["verified_write_cpu_seconds"]))
                vr_runs.append(Timed(r["verified_read_seconds"], r["verified_read_cpu_seconds"]))
                store_bytes = r["store_bytes"]
                saved = os.path.join(save_dir, "saved.lxp")
                copy = os.path.join(save_dir, "copy.lxp")
                cp_runs.append(anchor(["cp", saved, copy]))
                os.remove(copy)
                os.remove(saved)
            note = "%.2f GiB store" % (store_bytes / (1024.0 * MIB))
            compare_row(table, "save (WriteTo one file stream)", median_timed(w_runs), median_timed(cp_runs), "cp",
                        0.8, clock, note)
            compare_row(table, "load (ReadFrom one file stream)", median_timed(r_runs), median_timed(cp_runs), "cp",
                        0.8, clock, note)
            compare_row(table, "verified save (WriteVerifiedTo)", median_timed(vw_runs), median_timed(cp_runs), "cp",
                        0.8, clock, note)
            compare_row(table, "verified load (ReadVerifiedFrom)", median_timed(vr_runs), median_timed(cp_runs),
                        "cp", 0.8, clock, note)

        # --- whole processes of the lxaudio tool ------------------------------------------
        if wanted("cli"):
            log("== lxaudio rows (whole processes, wall clock)")
            cli_dir = os.path.join(work, "cli")
            os.makedirs(cli_dir)
            # Each run writes about one input's worth, the anchors as much again.
            prime_memory(cli_dir, 8 * (os.path.getsize(w44) // MIB + 1))
            project = os.path.join(cli_dir, "p.lxp")

            def lx(*words):
                return run_process([lxaudio, "-q"] + list(words), env=env)

            def fresh_project():
                if os.path.exists(project):
                    os.remove(project)
                lx("new", project)

            def timed_lx(*words):
                wall, cpu, _, _ = lx(*words)
                return Timed(wall, cpu)

            imp48, sox48, imp44, exp44, cp_runs = [], [], [], [], []
            wav_out = os.path.join(cli_dir, "out.wav")
            copy = os.path.join(cli_dir, "cp-out.wav")
            for _ in range(args.cli_reps):
                fresh_project()
                imp48.append(timed_lx("import", project, w48))
                sox48.append(anchor(["sox", w48, "-r", "44100", "-b", "16", wav_out]))
                os.remove(wav_out)
                fresh_project()
                imp44.append(timed_lx("import", project, w44))
                exp44.append(timed_lx("export", project, "1", wav_out))
                os.remove(wav_out)
                cp_runs.append(anchor(["cp", w44, copy]))
                os.remove(copy)
            compare_row_wall(table, "lxaudio import 48k/24-bit stereo %s" % length, median_timed(imp48),
                             median_timed(sox48), "sox -r 44100 -b 16", 2.0, "into a new project, saved")
            compare_row_wall(table, "lxaudio import 44.1k/16-bit stereo %s" % length, median_timed(imp44),
                             median_timed(cp_runs), "cp", 0.5, "into a new project, saved")
            compare_row_wall(table, "lxaudio export 44.1k/16-bit stereo %s" % length, median_timed(exp44),
                             median_timed(cp_runs), "cp", 0.5, "the imported clip to WAV")

            # Compression of the imported project, one core and two, against
            # oggenc at the same managed bitrate the store uses (and, for
            # information, oggenc's default unmanaged mode).
            imported = os.path.join(cli_dir, "imported.lxp")
            shutil.copyfile(project, imported)
            ogg = os.path.join(cli_dir, "oggenc.ogg")
            runs = {1: [], 2: []}
            managed, unmanaged, dec_ours, oggdec_runs = [], [], [], []
            for _ in range(args.compress_reps):
                for jobs in (1, 2):
                    shutil.copyfile(imported, project)
                    runs[jobs].append(timed_lx("compress", project, "--jobs", str(jobs)))
                dec_ours.append(timed_lx("export", project, "1", wav_out))
                os.remove(wav_out)
                unmanaged.append(anchor(["oggenc", "-Q", "-b", "128", "-o", ogg, w44]))
                managed.append(anchor(["oggenc", "-Q", "--managed", "-b", "128", "-o", ogg, w44]))
                oggdec_runs.append(anchor(["oggdec", "-Q", "-o", wav_out, ogg]))
                os.remove(wav_out)
            compare_row_wall(table, "lxaudio compress --jobs 1, %s stereo" % length, median_timed(runs[1]),
                             median_timed(managed), "oggenc --managed -b 128", 0.9)
            compare_row_wall(table, "lxaudio compress --jobs 2, %s stereo" % length, median_timed(runs[2]),
                             median_timed(managed), "oggenc --managed -b 128", 1.8)
            compare_row_wall(table, "lxaudio compress --jobs 1, %s stereo" % length, median_timed(runs[1]),
                             median_timed(unmanaged), "oggenc -b 128", None, "unmanaged oggenc, for information")
            compare_row_wall(table, "lxaudio export of a compressed clip, %s" % length, median_timed(dec_ours),
                             median_timed(oggdec_runs), "oggdec", 1.2, "oggdec decodes oggenc --managed -b 128")

        # --- memory --------------------------------------------------------------------------
        if wanted("memory"):
            log("== memory row (%d MiB WAV)" % args.memory_mib)
            peaks = []
            for mib in (args.memory_mib // 10, args.memory_mib):
                big = os.path.join(work, "big.wav")
                # Files up to 2 GiB; the store's 32-bit offsets need the raw data below 2^31 bytes.
                write_wav(big, w44, min(mib * MIB, 2 ** 31))
                r = run_ours(tool, ["import", big], env)
                peaks.append((mib, r["max_rss_kib"] / 1024.0, r["seconds"]))
                os.remove(big)
            small, large = peaks
            independent = large[1] <= small[1] * 1.25 + 4
            verdict = "met" if large[1] < 64 and independent else (
                "missed: %.0f MiB" % large[1] if large[1] >= 64 else "missed: grows with length")
            table.add("memory: import %d MiB WAV" % large[0], "%.1f MiB peak RSS" % large[1],
                      "%d MiB WAV: %.1f MiB" % (small[0], small[1]), "-", "-", "< 64 MiB, independent of length",
                      verdict, "44.1k/16-bit stereo; import took %s" % fmt_s(large[2]))

            log("== memory row (capture, simulated driver)")
            cap_env = dict(env, LXAUDIO_WAVE_DRIVER="simulated")
            caps = []
            for seconds_captured in (args.capture_seconds // 10, args.capture_seconds):
                r = run_ours(tool, ["capture", str(seconds_captured), "0"], cap_env)
                caps.append((seconds_captured, r["max_rss_kib"] / 1024.0, r["seconds"]))
            small, large = caps
            independent = large[1] <= small[1] * 1.25 + 4
            verdict = "met" if large[1] < 64 and independent else (
                "missed: %.0f MiB" % large[1] if large[1] >= 64 else "missed: grows with length")
            table.add("memory: capture %d min" % (large[0] // 60), "%.1f MiB peak RSS" % large[1],
                      "%d min: %.1f MiB" % (small[0] // 60, small[1]), "-", "-", "< 64 MiB, independent of length",
                      verdict, "simulated driver, instant completion; capture took %s" % fmt_s(large[2]))

        # --- a long project --------------------------------------------------------------------
        if wanted("long"):
            long_rows(table, tool, lxaudio, work, env, args)
    finally:
        shutil.rmtree(work, ignore_errors=True)

    load_after = os.getloadavg()
    heading = ("LxAudioCore benchmarks, %s, %s, %d cores; load average %.1f before, %.1f after; %.0f s. "
               "Ratio = anchor time / our time (>1: we are faster), on %s time; 'wall ratio' on wall-clock time." % (
                   datetime.datetime.now().strftime("%Y-%m-%d %H:%M"), platform.processor() or platform.machine(),
                   os.cpu_count(), load_before[0], load_after[0], time.time() - started,
                   "CPU" if clock == "cpu" else "wall-clock"))
    print(heading)
    print(table.text())
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(heading + "\n\n" + table.markdown() + "\n")


if __name__ == "__main__":
    main()
