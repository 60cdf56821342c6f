// velmar-factory-bench: the tool on a factory-sized bundle, side by side with
// what a user would run instead. One command:
//
//   build/bench/velmar-factory-bench [--velmarbs PATH] [--runs N]
//                                    [--plot docs/validate-time.svg] [--no-sizes]
//   build/bench/velmar-factory-bench --write DIR   (only writes the bundle)
//
// It builds a factory-like bundle (the sample plus 10 products, each with
// both device classes and 25 station variants: about 500 identities and a
// 10 MB build manifest) and prints, as medians of N runs taken in
// alternation:
//   - `velmarbs` validate r13/ss against Python's plistlib loading the same
//     manifest (process start included on both sides);
//   - the 12 queries of the desktop scan (--knownProducts --source,
//     --validproducts, --validvariants for each of the 10 products);
//   - validate's peak resident size against the manifest's size;
//   - the copy phase of a strip (strip time less validate time) against
//     `cp -a` of exactly the paths the strip kept;
// then validate time for manifests of 1, 2, 5, 10, 20 and 40 MB, drawn as an
// SVG plot (time against size) into the --plot file.

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "base/format.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"

namespace velmar {
namespace {

namespace fs = std::filesystem;

struct RunResult {
  double seconds = 0;
  long peakKb = 0;
  int status = -1;
};

// Runs argv with its output thrown away (or written to `out`); the time is
// the wall clock from spawn to exit, the peak the child's resident maximum.
RunResult run(const std::vector<std::string>& argv, const std::string& cwd = {}, const std::string& out = {}) {
  std::vector<std::string> args = argv;
  if (!cwd.empty()) args = {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", cwd};
  if (!cwd.empty()) args.insert(args.end(), argv.begin(), argv.end());
  std::vector<char*> cargs;
  for (std::string& a : args) cargs.push_back(a.data());
  cargs.push_back(nullptr);
  const std::string output = out.empty() ? "/dev/null" : out;
  RunResult r;
  auto start = std::chrono::steady_clock::now();
  // fork, not posix_spawn: a child sharing this process's memory until it
  // runs the program would inherit this process's peak as its own.
  pid_t pid = fork();
  if (pid < 0) return r;
  if (pid == 0) {
    int o = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int n = open("/dev/null", O_WRONLY);
    if (o >= 0) dup2(o, 1);
    if (n >= 0) dup2(n, 2);
    execvp(cargs[0], cargs.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  wait4(pid, &status, 0, &usage);
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  r.peakKb = usage.ru_maxrss;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Medians of `runs` alternating rounds of each job.
std::vector<double> alternate(int runs, const std::vector<std::function<double()>>& jobs) {
  std::vector<std::vector<double>> times(jobs.size());
  for (int i = 0; i < runs; ++i)
    for (size_t j = 0; j < jobs.size(); ++j) times[j].push_back(jobs[j]());
  std::vector<double> out;
  for (auto& t : times) out.push_back(median(t));
  return out;
}

const char* const kProcessors[] = {"xr2100x", "xr2120x", "xr2122x", "xr2130x", "xr1920x",
                                   "xr2140x", "xr2142x", "xr2145x", "xr2147x", "xr2150x"};

// The sample plus 10 products, each device class with the usual factory
// variants and station variants up to 25.
synth::BundleDescription factoryBundle(std::vector<std::string>* products) {
  synth::BundleDescription d = synth::sampleBundle();
  const synth::ProductRecipe r13 = synth::r13Recipe();
  for (int i = 0; i < 10; ++i) {
    synth::ProductRecipe p;
    p.board = format("f%02d", i);
    p.processor = kProcessors[i];
    p.model = format("Factory%d,1", i + 1);
    p.partBase = std::to_string(7000 + i);
    p.boardId = 0x300 + 2 * i;
    p.apVariants = r13.apVariants;
    for (int s = static_cast<int>(p.apVariants.size()); s < 25; ++s)
      p.apVariants.push_back(format("Factory - Station %02d", s));
    p.devVariants = p.apVariants;
    p.extraFirmwareItems = 52;
    addProduct(d, p);
    products->push_back(p.board);
  }
  return d;
}

std::string writeOrDie(const synth::BundleDescription& d, const std::string& path) {
  std::string error;
  if (!synth::writeBundle(d, path, &error)) {
    std::fprintf(stderr, "velmar-factory-bench: cannot write %s: %s\n", path.c_str(), error.c_str());
    std::exit(1);
  }
  return path;
}

// A forked child starts with this process's resident size, which the kernel
// keeps as the lowest possible peak of the program it runs: give the
// description's memory back first, so the peak measured is the tool's own.
long trimmedResidentKb() {
  malloc_trim(0);
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double manifestMb(const std::string& bundle) {
  return fs::file_size(bundle + "/Restore/BuildManifest.plist") / 1048576.0;
}

// The paths below `root` that are not folders, relative to it.
std::vector<std::string> keptPaths(const std::string& root) {
  std::vector<std::string> out;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it)
    if (!it->is_directory() || it->is_symlink()) out.push_back(fs::relative(it->path(), root).string());
  return out;
}

void writePlot(const std::string& path, const std::vector<std::pair<double, double>>& points,
               const std::string& caption) {
  const double w = 640, h = 400, left = 70, right = 20, top = 40, bottom = 60;
  double maxX = 0, maxY = 0;
  for (auto [x, y] : points) {
    maxX = std::max(maxX, x);
    maxY = std::max(maxY, y);
  }
  maxX = std::ceil(maxX / 10) * 10;
  maxY = std::max(0.1, std::ceil(maxY * 10) / 10);
  auto px = [&](double x) { return left + x / maxX * (w - left - right); };
  auto py = [&](double y) { return h - bottom - y / maxY * (h - top - bottom); };
  std::string svg = format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" font-family=\"sans-serif\" "
      "font-size=\"12\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n"
      "<text x=\"%.0f\" y=\"22\" font-size=\"14\">velmarbs validate: time against build-manifest size</text>\n",
      w, h, left);
  svg += format("<line x1=\"%.0f\" y1=\"%.0f\" x2=\"%.0f\" y2=\"%.0f\" stroke=\"black\"/>\n", left, h - bottom,
                w - right, h - bottom);
  svg += format("<line x1=\"%.0f\" y1=\"%.0f\" x2=\"%.0f\" y2=\"%.0f\" stroke=\"black\"/>\n", left, top, left,
                h - bottom);
  for (int i = 0; i <= 4; ++i) {
    double x = maxX * i / 4, y = maxY * i / 4;
    svg += format("<text x=\"%.1f\" y=\"%.0f\" text-anchor=\"middle\">%g</text>\n", px(x), h - bottom + 18, x);
    svg += format("<text x=\"%.0f\" y=\"%.1f\" text-anchor=\"end\">%.2f</text>\n", left - 6, py(y) + 4, y);
    svg += format("<line x1=\"%.0f\" y1=\"%.1f\" x2=\"%.0f\" y2=\"%.1f\" stroke=\"#ddd\"/>\n", left + 1, py(y),
                  w - right, py(y));
  }
  svg += format("<text x=\"%.0f\" y=\"%.0f\" text-anchor=\"middle\">manifest size (MB)</text>\n",
                (left + w - right) / 2, h - bottom + 36);
  svg += format("<text x=\"16\" y=\"%.0f\" transform=\"rotate(-90 16 %.0f)\" text-anchor=\"middle\">"
                "seconds (median of runs)</text>\n",
                (top + h - bottom) / 2, (top + h - bottom) / 2);
  std::string line;
  for (auto [x, y] : points) {
    line += format("%.1f,%.1f ", px(x), py(y));
    svg += format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3.5\" fill=\"#1f5fa8\"/>\n", px(x), py(y));
  }
  svg += "<polyline fill=\"none\" stroke=\"#1f5fa8\" stroke-width=\"2\" points=\"" + line + "\"/>\n";
  svg += format("<text x=\"%.0f\" y=\"%.0f\" font-size=\"11\" fill=\"#555\">%s</text>\n", left, h - 8,
                caption.c_str());
  svg += "</svg>\n";
  std::ofstream(path) << svg;
}

std::string machineText() {
  struct utsname u;
  uname(&u);
  std::string cpu = "unknown processor";
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) {
      cpu = line.substr(line.find(':') + 2);
      break;
    }
  return format("%s, %u cores, %s %s", cpu.c_str(), std::thread::hardware_concurrency(), u.sysname, u.release);
}

int usage() {
  std::fprintf(stderr,
               "usage: velmar-factory-bench [--velmarbs PATH] [--runs N] [--plot FILE.svg] [--no-sizes]\n"
               "       velmar-factory-bench --write DIR\n");
  return 2;
}

}  // namespace
}  // namespace velmar

int main(int argc, char** argv) {
  using namespace velmar;
  std::string tool = std::string(VELMAR_BINARY_DIR) + "/tool/velmarbs";
  std::string plot;
  int runs = 5;
  bool sizes = true;
  std::string writeOnly;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--velmarbs" && i + 1 < argc) tool = argv[++i];
    else if (a == "--runs" && i + 1 < argc) runs = std::max(1, std::atoi(argv[++i]));
    else if (a == "--plot" && i + 1 < argc) plot = argv[++i];
    else if (a == "--no-sizes") sizes = false;
    else if (a == "--write" && i + 1 < argc) writeOnly = argv[++i];
    else return usage();
  }
  if (!writeOnly.empty()) {
    std::vector<std::string> products;
    writeOrDie(factoryBundle(&products), writeOnly);
    std::printf("wrote %s (manifest %.1f MB)\n", writeOnly.c_str(), manifestMb(writeOnly));
    return 0;
  }
  if (access(tool.c_str(), X_OK) != 0) {
    std::fprintf(stderr, "velmar-factory-bench: no velmarbs at %s\n", tool.c_str());
    return 1;
  }
  std::printf("machine: %s\nvelmarbs: %s\nmedians of %d runs, taken in alternation\n\n", machineText().c_str(),
              tool.c_str(), runs);

  synth::TempDir dir("velmar-factory-bench");
  std::vector<std::string> products;
  const std::string bundle = writeOrDie(factoryBundle(&products), dir / "Factory");
  const std::string manifest = bundle + "/Restore/BuildManifest.plist";
  const double mb = manifestMb(bundle);
  std::printf("factory-like bundle: %zu products, manifest %.1f MB (this program now holds %.1f MB)\n",
              products.size() + 2, mb, trimmedResidentKb() / 1024.0);

  // Validate against plistlib.
  const std::vector<std::string> validate = {tool, "--source", bundle, "--product", "r13", "--factory", "ss"};
  const std::vector<std::string> plistlib = {
      "python3", "-c", "import plistlib,sys; plistlib.load(open(sys.argv[1],'rb'))", manifest};
  long peakKb = 0;
  int validateStatus = 0;
  auto t = alternate(runs, {[&] {
                              RunResult r = run(validate);
                              peakKb = std::max(peakKb, r.peakKb);
                              validateStatus |= r.status;
                              return r.seconds;
                            },
                            [&] { return run(plistlib).seconds; }});
  std::printf("  %-44s %8.3f s%s\n", "velmarbs validate r13/ss", t[0], validateStatus ? "  (FAILED)" : "");
  std::printf("  %-44s %8.3f s   (validate / plistlib = %.2f)\n", "python3 plistlib.load of the manifest", t[1],
              t[0] / t[1]);
  std::printf("  %-44s %8.1f MB  (%.1f x the manifest)\n", "peak resident size of validate", peakKb / 1024.0,
              peakKb / 1024.0 / mb);

  // The desktop scan's twelve queries.
  std::vector<std::vector<std::string>> queries = {{tool, "--knownProducts", "--source", bundle},
                                                   {tool, "--validproducts", "--source", bundle}};
  for (const std::string& p : products)
    queries.push_back({tool, "--validvariants", "--product", p, "--source", bundle});
  int queryStatus = 0;
  auto q = alternate(runs, {[&] {
    double sum = 0;
    for (const auto& query : queries) {
      RunResult r = run(query);
      queryStatus |= r.status;
      sum += r.seconds;
    }
    return sum;
  }});
  std::printf("  %-44s %8.3f s   (%.0f ms a query)%s\n", "the 12 scan queries", q[0], q[0] / 12 * 1000,
              queryStatus ? "  (SOME FAILED)" : "");

  // The copy phase of a strip against cp -a of the kept paths.
  const std::string target = dir / "Stripped";
  std::vector<std::string> strip = validate;
  strip.insert(strip.end(), {"--target", target, "--ov"});
  RunResult first = run(strip);
  if (first.status != 0) {
    std::printf("  strip failed (status %d); no copy figures\n", first.status);
  } else {
    const std::string list = dir / "kept.txt";
    {
      std::ofstream out(list);
      for (const std::string& p : keptPaths(target)) out << p << '\0';
    }
    const std::string copy = dir / "Copy";
    auto c = alternate(runs, {[&] {
                                fs::remove_all(target);
                                return run(strip).seconds;
                              },
                              [&] { return run(validate).seconds; },
                              [&] {
                                fs::remove_all(copy);
                                fs::create_directory(copy);
                                return run({"xargs", "-0", "-a", list, "cp", "-a", "--parents", "-t", copy},
                                           bundle)
                                    .seconds;
                              }});
    std::printf("  %-44s %8.3f s\n", "copy phase of a strip (strip - validate)", c[0] - c[1]);
    std::printf("  %-44s %8.3f s   (copy phase / cp -a = %.2f)\n", "cp -a of the kept paths", c[2],
                (c[0] - c[1]) / c[2]);
  }

  if (!sizes) return 0;
  std::printf("\nvalidate time against manifest size (largeBundle, r13/ss)\n");
  std::vector<std::pair<double, double>> points;
  for (double wantMb : {1.0, 2.0, 5.0, 10.0, 20.0, 40.0}) {
    // 150 synthetic products make about 9.7 MB.
    size_t n = static_cast<size_t>(wantMb / 9.7 * synth::kLargeBundleProducts + 0.5);
    const std::string b = writeOrDie(synth::largeBundle(n), dir / format("Size%.0f", wantMb));
    const double size = manifestMb(b);
    trimmedResidentKb();
    auto s = alternate(runs, {[&] { return run({tool, "--source", b, "--product", "r13", "--factory", "ss"}).seconds; }});
    std::printf("  %6.1f MB  %8.3f s\n", size, s[0]);
    points.emplace_back(size, s[0]);
    fs::remove_all(b);
  }
  if (!plot.empty()) {
    writePlot(plot, points, "measured on " + machineText());
    std::printf("plot written to %s\n", plot.c_str());
  }
  return 0;
}
