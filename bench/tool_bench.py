#!/usr/bin/env python3
"""The whole velmarbs tool on a factory-like bundle, one command.

Prints, side by side (medians of --runs, compared commands alternating):
  - validate against Python's plistlib loading the same manifest;
  - the desktop application's scan: its 12 queries, total and each;
  - validate's peak resident memory over the manifest's size;
  - the copy phase of a strip (strip - validate) against `cp -a --parents`
    of exactly the paths the strip keeps;
  - validate time for manifests of several sizes, plotted into an SVG.

Wall-clock times include process start, as a user or the desktop sees them.
The tool keeps parsed manifests in a per-user cache between runs; the
benchmark gives it a private one ($XDG_CACHE_HOME in the scratch folder) and
measures both ways: "cold" with the cache emptied first (the run parses, and
a child of it stores the manifest after the answer is out; the benchmark
waits for that before timing anything else) and "warm" with the manifest
kept.
Needs only python3, coreutils and /usr/bin/time (Debian package `time`).

  scripts/bench.sh                  # builds what it needs, then runs this
  bench/tool_bench.py --build build --runs 5 --plot docs/validate-time.svg
"""

import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

MB = 1000 * 1000
FACTORY_PRODUCTS = 10
VALIDATE_PRODUCT = "f000"
VALIDATE_STATION = "ss"
# The copy phase keeps the three OS images of one product, so the payload
# is a few hundred MB of real bytes.
COPY_STATIONS = ["ss", "swdl", "internal-dev"]

# Goals of the issue that asked for this benchmark.
GOAL_VALIDATE_RATIO = 0.12
GOAL_SCAN_TOTAL = 0.6
GOAL_MEMORY_RATIO = 4.0
GOAL_COPY_RATIO = 1.05


class BenchError(Exception):
    pass


def run(argv, cwd=None, check=True):
    """Runs argv with output captured; returns (seconds, completed process)."""
    start = time.perf_counter()
    proc = subprocess.run(argv, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    seconds = time.perf_counter() - start
    if check and proc.returncode != 0:
        raise BenchError("%s exited %d:\n%s" % (" ".join(argv[:6]), proc.returncode,
                                               proc.stderr.decode(errors="replace")[-2000:]))
    return seconds, proc


def alternate(commands, runs, before_each=None, after_each=None):
    """Times each named command `runs` times, interleaved so that drifting
    machine load falls on all of them alike; returns name -> list of seconds."""
    times = {name: [] for name in commands}
    for _ in range(runs):
        for name, argv in commands.items():
            if before_each:
                before_each(name)
            times[name].append(run(argv)[0])
            if after_each:
                after_each(name)
    return times


class ParseCache:
    """The tool's per-user cache of parsed manifests, private to the run."""

    # The tool keeps no file changed less than this long ago.
    SETTLE_S = 2.2

    def __init__(self, work):
        self.home = os.path.join(work, "cache")
        self.parsed = os.path.join(self.home, "velmarbs", "parsed")
        os.environ["XDG_CACHE_HOME"] = self.home

    def clear(self):
        shutil.rmtree(self.home, ignore_errors=True)

    @classmethod
    def settle(cls, manifest):
        """Waits until the tool will keep `manifest` (just written)."""
        st = os.stat(manifest)
        wait = max(st.st_mtime, st.st_ctime) + cls.SETTLE_S - time.time()
        if wait > 0:
            time.sleep(wait)

    def wait_for(self, manifest, timeout=10.0):
        """Waits until the parsed `manifest` is stored (by the child of an
        earlier run), so that no writer runs beside what is timed next."""
        st = os.stat(manifest)
        mark = "-%016x-%d-" % (st.st_ino, st.st_size)
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            try:
                if any(mark in name for name in os.listdir(self.parsed)):
                    # Later runs of a cold scan may still be writing the
                    # same entry, which they then find there.
                    time.sleep(0.1)
                    return
            except FileNotFoundError:
                pass
            time.sleep(0.01)
        raise BenchError("the parsed manifest was not stored within %g s" % timeout)

    def warm_up(self, argv, manifest):
        run(argv)
        self.wait_for(manifest)


def cold_and_warm(cache, manifest, runs, cold, warm, others):
    """Times `cold` with the cache emptied first, `warm` with the manifest
    kept, and the `others`, alternating."""
    ParseCache.settle(manifest)
    cache.warm_up(warm, manifest)
    commands = {"cold": cold, "warm": warm}
    commands.update(others)

    def before(name):
        if name == "cold":
            cache.clear()

    def after(name):
        if name == "cold":
            cache.wait_for(manifest)

    return alternate(commands, runs, before, after)


def median(values):
    return statistics.median(values)


def verdict(value, goal):
    return "ok" if value <= goal else "MISSED"


def machine():
    cpu = "unknown"
    memory_kb = 0
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
        with open("/proc/meminfo") as f:
            for line in f:
                if line.startswith("MemTotal:"):
                    memory_kb = int(line.split()[1])
    except OSError:
        pass
    return {"nproc": os.cpu_count(), "cpu": cpu, "memory_gib": round(memory_kb / 1024 / 1024, 1),
            "load": os.getloadavg()[0]}


def commit():
    """The code measured: the checkout's commit, marked when it has changes."""
    here = os.path.dirname(os.path.abspath(__file__))
    try:
        head = subprocess.run(["git", "-C", here, "rev-parse", "--short", "HEAD"], capture_output=True,
                              text=True).stdout.strip()
        dirty = subprocess.run(["git", "-C", here, "status", "--porcelain", "--untracked-files=no"],
                               capture_output=True, text=True).stdout.strip()
    except OSError:
        return "unknown commit"
    return "commit " + (head or "unknown") + (" with changes" if dirty else "")


class Tools:
    def __init__(self, build):
        self.velmarbs = os.path.join(build, "tool", "velmarbs")
        self.mkbundle = os.path.join(build, "synth", "velmar-mkbundle")
        for path in (self.velmarbs, self.mkbundle):
            if not os.access(path, os.X_OK):
                raise BenchError("%s is missing; build it first (scripts/bench.sh does)" % path)
        if not os.access("/usr/bin/time", os.X_OK):
            raise BenchError("/usr/bin/time is missing (Debian package `time`; scripts/setup.sh)")

    def make_factory(self, root, products, items=None):
        argv = [self.mkbundle, root, "--factory", str(products)]
        if items is not None:
            argv += ["--items", str(items)]
        run(argv)
        return os.path.join(root, "Restore", "BuildManifest.plist")

    def validate(self, bundle, product=VALIDATE_PRODUCT, stations=(VALIDATE_STATION,)):
        argv = [self.velmarbs, "--source", bundle, "--product", product]
        for s in stations:
            argv += ["--factory", s]
        return argv


def plistlib_argv(manifest):
    """What a user would run instead: Python reading the manifest alone."""
    return ["python3", "-c", 'import plistlib; plistlib.load(open(%r,"rb"))' % manifest]


# --- the parts ---------------------------------------------------------------

def bench_validate(tools, bundle, manifest, runs, cache):
    run(tools.validate(bundle))  # fails loudly if the bundle does not validate
    t = cold_and_warm(cache, manifest, runs, tools.validate(bundle), tools.validate(bundle),
                      {"plistlib": plistlib_argv(manifest)})
    v, c, p = median(t["warm"]), median(t["cold"]), median(t["plistlib"])
    return {"validate_s": v, "validate_cold_s": c, "plistlib_s": p, "ratio": v / p, "ratio_cold": c / p}


def scan_queries(tools, bundle, products):
    queries = [("--knownProducts", [tools.velmarbs, "--knownProducts", "--source", bundle]),
               ("--validproducts", [tools.velmarbs, "--validproducts", "--source", bundle])]
    for p in products:
        queries.append(("--validvariants " + p,
                        [tools.velmarbs, "--validvariants", "--product", p, "--source", bundle]))
    return queries


def bench_scan(tools, bundle, manifest, runs, cache):
    _, proc = run([tools.velmarbs, "--validproducts", "--source", bundle])
    products = re.findall(r"<string>([^<]*)</string>", proc.stdout.decode())
    if len(products) != FACTORY_PRODUCTS:
        raise BenchError("--validproducts answered %r" % products)
    queries = scan_queries(tools, bundle, products)
    ParseCache.settle(manifest)
    figures = {}
    per_query = {kind: {name: [] for name, _ in queries} for kind in ("cold", "warm")}
    totals = {"cold": [], "warm": []}
    for _ in range(runs):
        # One scan as the desktop makes it on a bundle it has not seen, the
        # queries back to back; then one on a bundle it has.
        for kind in ("cold", "warm"):
            if kind == "cold":
                cache.clear()
            total = 0.0
            for name, argv in queries:
                seconds, proc = run(argv)
                if b"<plist" not in proc.stdout:
                    raise BenchError("%s printed no property list" % name)
                per_query[kind][name].append(seconds)
                total += seconds
            totals[kind].append(total)
            cache.wait_for(manifest)
    for kind in ("cold", "warm"):
        figures[kind] = {"total_s": median(totals[kind]),
                         "per_query_s": {name: median(v) for name, v in per_query[kind].items()}}
    figures["count"] = len(queries)
    # The warm scan is what the desktop meets from its second look at a
    # bundle on: the figure the goal is read against.
    figures["total_s"] = figures["warm"]["total_s"]
    figures["per_query_s"] = figures["warm"]["per_query_s"]
    return figures


def peak_rss_bytes(argv):
    _, proc = run(["/usr/bin/time", "-v"] + argv)
    m = re.search(rb"Maximum resident set size \(kbytes\): (\d+)", proc.stderr)
    if not m:
        raise BenchError("no peak memory in /usr/bin/time's report")
    return int(m.group(1)) * 1024


def bench_memory(tools, bundle, manifest, runs, cache):
    size = os.path.getsize(manifest)
    cold = []
    for _ in range(runs):
        cache.clear()
        cold.append(peak_rss_bytes(tools.validate(bundle)))
        cache.wait_for(manifest)
    warm = [peak_rss_bytes(tools.validate(bundle)) for _ in range(runs)]
    peak, peak_cold = median(warm), median(cold)
    return {"peak_bytes": peak, "peak_cold_bytes": peak_cold, "manifest_bytes": size, "ratio": peak / size,
            "ratio_cold": peak_cold / size}


def kept_paths(tools, bundle, target):
    argv = tools.validate(bundle, stations=COPY_STATIONS)
    _, proc = run(argv + ["--target", target, "--results"])
    shutil.rmtree(target)
    import plistlib
    text = proc.stdout
    results = plistlib.loads(text[text.index(b"<?xml"):])
    paths = list(results["strippedManifest"]) + list(results["modifiedFiles"].keys())
    return sorted(set(paths))


def fill(path, size):
    """Rewrites path as `size` bytes of real, non-repeating-block data."""
    chunk = os.urandom(MB)
    with open(path, "wb") as f:
        written = 0
        while written < size:
            n = min(len(chunk), size - written)
            f.write(chunk[:n])
            written += n


def bench_copy(tools, bundle, work, runs, image_mb):
    target = os.path.join(work, "Stripped")
    paths = kept_paths(tools, bundle, target)
    # Copy exactly the kept files and links; a kept folder is made by the
    # copies below it (cp -a of a folder would copy all it holds).
    entries = [p for p in paths if os.path.lexists(os.path.join(bundle, p))
               and (os.path.islink(os.path.join(bundle, p))
                    or not os.path.isdir(os.path.join(bundle, p)))]
    images = [p for p in entries if re.match(r"Restore/0[13]8-[^/]*\.dmg$", p)
              and not os.path.islink(os.path.join(bundle, p))]
    for p in images:
        big = image_mb if p.startswith("Restore/038-") else max(1, image_mb // 4)
        fill(os.path.join(bundle, p), big * MB)
    payload = sum(os.lstat(os.path.join(bundle, p)).st_size for p in entries)

    copy_dest = os.path.join(work, "CpCopy")
    validate = tools.validate(bundle, stations=COPY_STATIONS)
    commands = {
        "validate": validate,
        "strip": validate + ["--target", target],
        "cp": ["sh", "-c", 'cd "$1" && shift && dest="$1" && shift && cp -a --parents -- "$@" "$dest"',
               "cp", bundle, copy_dest] + entries,
    }

    def clean(name):
        for path in (target, copy_dest):
            if os.path.lexists(path):
                shutil.rmtree(path)
        os.mkdir(copy_dest)
        subprocess.run(["sync"])

    t = alternate(commands, runs, before_each=clean)
    clean(None)
    phases = [s - v for s, v in zip(t["strip"], t["validate"])]
    copy_phase = median(phases)
    cp = median(t["cp"])
    return {"entries": len(entries), "payload_bytes": payload, "strip_s": median(t["strip"]),
            "validate_s": median(t["validate"]), "copy_phase_s": copy_phase, "cp_s": cp,
            "ratio": copy_phase / cp}


def calibrate(tools, work):
    """Manifest bytes of one product with one extra item, and per extra item
    (with none the items carry no digests, so one is the smallest shape)."""
    sizes = []
    for items in (1, 21):
        root = os.path.join(work, "Calibrate%d" % items)
        sizes.append(os.path.getsize(tools.make_factory(root, 1, items)))
        shutil.rmtree(root)
    return sizes[0], (sizes[1] - sizes[0]) / 20


def shape_for(megabytes, one_item, per_item):
    """Products and extra items for a manifest of about `megabytes`: the
    factory's ten products where they fit, fewer for the smallest sizes."""
    want = megabytes * MB
    products = FACTORY_PRODUCTS
    while products > 1 and products * one_item > want:
        products -= 1
    items = max(1, 1 + round((want / products - one_item) / per_item))
    return products, items


def bench_sizes(tools, work, sizes_mb, runs, cache):
    one_item, per_item = calibrate(tools, work)
    rows = []
    for mb in sizes_mb:
        products, items = shape_for(mb, one_item, per_item)
        root = os.path.join(work, "Size%g" % mb)
        manifest = tools.make_factory(root, products, items)
        run(tools.validate(root))
        t = cold_and_warm(cache, manifest, runs, tools.validate(root), tools.validate(root),
                          {"plistlib": plistlib_argv(manifest)})
        rows.append({"target_mb": mb, "manifest_bytes": os.path.getsize(manifest), "products": products,
                     "items": items, "validate_s": median(t["warm"]), "validate_cold_s": median(t["cold"]),
                     "plistlib_s": median(t["plistlib"])})
        shutil.rmtree(root)
        print("  %5.1f MB  (%2d products, %3d extra items)  validate %7.3f s (cold %7.3f s)   plistlib %7.3f s" %
              (rows[-1]["manifest_bytes"] / MB, products, items, rows[-1]["validate_s"],
               rows[-1]["validate_cold_s"], rows[-1]["plistlib_s"]), flush=True)
    return rows


# --- the plot ----------------------------------------------------------------

def nice_step(span, ticks=5):
    raw = span / ticks
    magnitude = 10 ** (len(str(int(raw))) - 1) if raw >= 1 else 10 ** -len(str(int(1 / raw)))
    for m in (1, 2, 2.5, 5, 10):
        if raw <= m * magnitude:
            return m * magnitude
    return 10 * magnitude


def svg_plot(rows, title, subtitle, baseline=None, baseline_name=""):
    """A small line chart of validate time (and plistlib's) against size;
    `baseline` rows of an earlier run are drawn dashed beside them."""
    w, h = 640, 400
    left, right, top, bottom = 64, 24, 56, 52
    pw, ph = w - left - right, h - top - bottom
    xs = [r["manifest_bytes"] / MB for r in rows]
    series = [("velmarbs validate, manifest kept parsed", "#1f5fa8", "", xs, [r["validate_s"] for r in rows])]
    if all("validate_cold_s" in r for r in rows):
        series.append(("velmarbs validate, first run (parses)", "#4f9a3a", "", xs,
                       [r["validate_cold_s"] for r in rows]))
    series.append(("python3 plistlib.load", "#c0504d", "", xs, [r["plistlib_s"] for r in rows]))
    if baseline:
        series.append(("velmarbs validate, " + baseline_name, "#7f7f7f", "6 4",
                       [r["manifest_bytes"] / MB for r in baseline], [r["validate_s"] for r in baseline]))
    xmax = max(max(x) for _, _, _, x, _ in series) * 1.05
    ymax = max(max(v) for _, _, _, _, v in series) * 1.1
    xstep, ystep = nice_step(xmax), nice_step(ymax)

    def px(x):
        return left + pw * x / xmax

    def py(y):
        return top + ph - ph * y / ymax

    out = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" viewBox="0 0 %d %d" '
           'font-family="DejaVu Sans, sans-serif" font-size="12">' % (w, h, w, h),
           '<rect width="100%" height="100%" fill="white"/>',
           '<text x="%d" y="22" font-size="15" font-weight="bold">%s</text>' % (left, escape(title)),
           '<text x="%d" y="40" fill="#555">%s</text>' % (left, escape(subtitle))]
    y = 0.0
    while y <= ymax + 1e-9:
        out.append('<line x1="%d" y1="%.1f" x2="%d" y2="%.1f" stroke="#e4e4e4"/>' % (left, py(y), w - right, py(y)))
        out.append('<text x="%d" y="%.1f" text-anchor="end">%s</text>' % (left - 6, py(y) + 4, "%g" % round(y, 3)))
        y += ystep
    x = 0.0
    while x <= xmax + 1e-9:
        out.append('<line x1="%.1f" y1="%d" x2="%.1f" y2="%d" stroke="#e4e4e4"/>' % (px(x), top, px(x), top + ph))
        out.append('<text x="%.1f" y="%d" text-anchor="middle">%s</text>' % (px(x), top + ph + 16, "%g" % x))
        x += xstep
    out.append('<rect x="%d" y="%d" width="%d" height="%d" fill="none" stroke="#888"/>' % (left, top, pw, ph))
    out.append('<text x="%.1f" y="%d" text-anchor="middle">build manifest size (MB)</text>' % (left + pw / 2, h - 10))
    out.append('<text transform="translate(16 %.1f) rotate(-90)" text-anchor="middle">seconds (median, '
               'process start included)</text>' % (top + ph / 2))
    for i, (name, colour, dash, xs, ys) in enumerate(series):
        points = " ".join("%.1f,%.1f" % (px(a), py(b)) for a, b in zip(xs, ys))
        style = ' stroke-dasharray="%s"' % dash if dash else ""
        out.append('<polyline points="%s" fill="none" stroke="%s" stroke-width="2"%s/>' % (points, colour, style))
        for a, b in zip(xs, ys):
            out.append('<circle cx="%.1f" cy="%.1f" r="3" fill="%s"/>' % (px(a), py(b), colour))
        ly = top + 14 + 18 * i
        out.append('<line x1="%d" y1="%d" x2="%d" y2="%d" stroke="%s" stroke-width="2"%s/>' %
                   (left + 12, ly - 4, left + 36, ly - 4, colour, style))
        out.append('<text x="%d" y="%d">%s</text>' % (left + 42, ly, escape(name)))
    out.append("</svg>")
    return "\n".join(out) + "\n"


def escape(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")


# --- main --------------------------------------------------------------------

def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default="build", help="the CMake build folder (default: build)")
    parser.add_argument("--runs", type=int, default=5, help="runs of each command (default: 5)")
    parser.add_argument("--sizes", default="1,2,5,10,20,40", help="manifest sizes in MB for the plot")
    parser.add_argument("--image-mb", type=int, default=100,
                        help="size of each kept OS image in the copy phase (default: 100)")
    parser.add_argument("--plot", default="docs/validate-time.svg", help="where the SVG goes ('' for none)")
    parser.add_argument("--json", default="", help="also write every figure to this file")
    parser.add_argument("--baseline", default="",
                        help="a --json file of an earlier run, drawn dashed in the plot")
    parser.add_argument("--baseline-name", default="before", help="its name in the plot's legend")
    parser.add_argument("--work", default="", help="scratch folder (default: a new one in $TMPDIR)")
    args = parser.parse_args()

    m = machine()
    m["commit"] = commit()
    print("code: %s" % m["commit"])
    print("machine: %d cores (nproc), %s, %.1f GiB memory; load average %.2f at start" %
          (m["nproc"], m["cpu"], m["memory_gib"], m["load"]))
    print("medians of %d runs; compared commands alternate\n" % args.runs, flush=True)

    tools = Tools(args.build)
    work = args.work or tempfile.mkdtemp(prefix="velmar-tool-bench-")
    os.makedirs(work, exist_ok=True)
    figures = {"machine": m, "runs": args.runs}
    cache = ParseCache(work)
    try:
        bundle = os.path.join(work, "Factory")
        manifest = tools.make_factory(bundle, FACTORY_PRODUCTS)
        with open(manifest, "rb") as f:
            identities = f.read().count(b"<key>DeviceClass</key>")
        print("factory-like bundle: %d products, %d identities, manifest %.1f MB" %
              (FACTORY_PRODUCTS, identities, os.path.getsize(manifest) / MB))
        validate_words = " ".join(tools.validate("B")[1:])

        v = bench_validate(tools, bundle, manifest, args.runs, cache)
        figures["validate"] = v
        print("\nvalidate (velmarbs %s) against plistlib.load of the manifest" % validate_words)
        for kind, key in (("cold", "_cold"), ("warm", "")):
            print("  %s: velmarbs %.3f s   plistlib %.3f s   ratio %.3f   (goal <= %.2f: %s)" %
                  (kind, v["validate%s_s" % key], v["plistlib_s"], v["ratio" + key], GOAL_VALIDATE_RATIO,
                   verdict(v["ratio" + key], GOAL_VALIDATE_RATIO)), flush=True)

        s = bench_scan(tools, bundle, manifest, args.runs, cache)
        figures["scan"] = s
        print("\nthe desktop's scan: %d queries       cold      warm" % s["count"])
        for name in s["warm"]["per_query_s"]:
            print("  %-28s %.3f s   %.3f s" % (name, s["cold"]["per_query_s"][name], s["warm"]["per_query_s"][name]))
        for kind in ("cold", "warm"):
            total = s[kind]["total_s"]
            print("  %s total %.3f s (%.3f s a query)   (goal <= %.1f s: %s)" %
                  (kind, total, total / s["count"], GOAL_SCAN_TOTAL, verdict(total, GOAL_SCAN_TOTAL)), flush=True)

        mem = bench_memory(tools, bundle, manifest, args.runs, cache)
        figures["memory"] = mem
        print("\npeak resident memory of validate (/usr/bin/time -v)")
        for kind, key in (("cold", "_cold"), ("warm", "")):
            print("  %s: %.1f MB for a %.1f MB manifest: %.2f x   (goal <= %g: %s)" %
                  (kind, mem["peak%s_bytes" % key] / MB, mem["manifest_bytes"] / MB, mem["ratio" + key],
                   GOAL_MEMORY_RATIO, verdict(mem["ratio" + key], GOAL_MEMORY_RATIO)), flush=True)

        c = bench_copy(tools, bundle, work, args.runs, args.image_mb)
        figures["copy"] = c
        print("\ncopy phase of a strip (%s, --factory %s) against cp -a --parents of the kept paths" %
              (VALIDATE_PRODUCT, " --factory ".join(COPY_STATIONS)))
        print("  %d kept files and links, %.0f MB" % (c["entries"], c["payload_bytes"] / MB))
        print("  strip %.3f s - validate %.3f s = copy phase %.3f s   cp -a %.3f s   ratio %.3f   "
              "(goal <= %.2f: %s)" % (c["strip_s"], c["validate_s"], c["copy_phase_s"], c["cp_s"],
                                      c["ratio"], GOAL_COPY_RATIO, verdict(c["ratio"], GOAL_COPY_RATIO)),
              flush=True)
        shutil.rmtree(bundle)

        sizes = [float(x) for x in args.sizes.split(",") if x.strip()]
        print("\nvalidate time against manifest size")
        rows = bench_sizes(tools, work, sizes, args.runs, cache)
        figures["sizes"] = rows
        if args.plot and rows:
            subtitle = "%s; %d cores, %s, %.0f GiB; medians of %d" % (
                m["commit"], m["nproc"], m["cpu"], m["memory_gib"], args.runs)
            baseline = None
            if args.baseline:
                with open(args.baseline) as f:
                    baseline = json.load(f).get("sizes")
            with open(args.plot, "w") as f:
                f.write(svg_plot(rows, "velmarbs validate time against build manifest size", subtitle,
                                 baseline, args.baseline_name))
            print("plot written to %s" % args.plot)
        if args.json:
            with open(args.json, "w") as f:
                json.dump(figures, f, indent=2)
        print("load average %.2f at the end" % os.getloadavg()[0])
    finally:
        if not args.work:
            shutil.rmtree(work, ignore_errors=True)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BenchError as e:
        print("tool_bench: %s" % e, file=sys.stderr)
        sys.exit(1)
    except KeyboardInterrupt:
        sys.exit(130)
