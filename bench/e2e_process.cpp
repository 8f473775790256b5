// The whole program against z3's own reading, each in a process of its own:
// time from start to exit and peak resident memory (the child's ru_maxrss).
//
//   orvo_itp_e2e_process [--reps N] [--program PATH] [--dir DIR] [--samples FILE]
//                        [WORKLOAD...]
//
// For every workload (bench/workloads.h; without any, the default ones) the
// script is written to DIR (default build/perf/e2e) as <name>.smt2 and its z3
// form as <name>.z3.smt2; then N rounds (default 5) each start, in an order
// that rotates from round to round:
//
//   program  PATH <name>.smt2, standard output and error to /dev/null: the
//            program from start to exit, its text report written
//   z3       this tool, --z3-read <name>.z3.smt2: read the file, z3's parse
//   base     this tool, --base <name>.z3.smt2: read the file, make and delete
//            a z3 context (what both pay before reading a term)
//
// and prints, per workload, the median [min–max] of CPU time (user + system)
// and peak resident memory of each, and the ratios program / z3 of the
// medians: time (CPU), wall time, memory (peak), and memory above base.
// --samples writes every measurement (wall time too) as tab-separated lines.
//
//   orvo_itp_e2e_process --script WORKLOAD | --z3-script WORKLOAD
//       print the script, or its z3 form
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <z3.h>

#include "bench/contenders.h"
#include "bench/workloads.h"

namespace {

struct Sample {
  double wall = 0;  // seconds
  double cpu = 0;   // seconds, user + system
  double rss = 0;   // MB, peak
};

std::string read_file(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::cerr << "orvo_itp_e2e_process: cannot open " << path << "\n";
    std::exit(1);
  }
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write_file(std::string const& path, std::string const& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out) {
    std::cerr << "orvo_itp_e2e_process: cannot write " << path << "\n";
    std::exit(1);
  }
}

// Starts argv in a child with standard output and error on /dev/null;
// returns what it used, or exits when it failed.
Sample measure(std::vector<std::string> const& args) {
  std::vector<char*> argv;
  for (std::string const& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  auto const start = std::chrono::steady_clock::now();
  pid_t const pid = fork();
  if (pid < 0) {
    std::perror("fork");
    std::exit(1);
  }
  if (pid == 0) {
    int const null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  rusage use{};
  if (wait4(pid, &status, 0, &use) != pid) {
    std::perror("wait4");
    std::exit(1);
  }
  Sample s;
  s.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::cerr << "orvo_itp_e2e_process: failed (status " << status << "):";
    for (std::string const& a : args)
      std::cerr << " " << a;
    std::cerr << "\n";
    std::exit(1);
  }
  s.cpu = static_cast<double>(use.ru_utime.tv_sec + use.ru_stime.tv_sec) +
          static_cast<double>(use.ru_utime.tv_usec + use.ru_stime.tv_usec) * 1e-6;
  s.rss = static_cast<double>(use.ru_maxrss) / 1024.0;  // KB on Linux
  return s;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  std::size_t const n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::string spread(std::vector<double> const& v, char const* unit, int precision) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%.*f%s [%.*f–%.*f]", precision, median(v), unit, precision,
                *std::min_element(v.begin(), v.end()), precision,
                *std::max_element(v.begin(), v.end()));
  return buf;
}

std::string self_path() {
  char buf[4096];
  ssize_t const n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) {
    std::cerr << "orvo_itp_e2e_process: cannot find its own path\n";
    std::exit(1);
  }
  return std::string(buf, static_cast<std::size_t>(n));
}

int usage() {
  std::cerr << "usage: orvo_itp_e2e_process [--reps N] [--program PATH] [--dir DIR]"
               " [--samples FILE] [WORKLOAD...]\n"
               "       orvo_itp_e2e_process --script WORKLOAD | --z3-script WORKLOAD\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const args(argv + 1, argv + argc);
  if (args.size() == 2 && (args[0] == "--z3-read" || args[0] == "--base")) {
    std::string const text = read_file(args[1]);
    if (args[0] == "--z3-read") {
      try {
        orvo::bench::z3_read(text);
      } catch (std::exception const& e) {
        std::cerr << e.what() << "\n";
        return 1;
      }
    } else {
      Z3_config const config = Z3_mk_config();
      Z3_context const ctx = Z3_mk_context_rc(config);
      Z3_del_config(config);
      Z3_del_context(ctx);
    }
    return 0;
  }
  if (args.size() == 2 && (args[0] == "--script" || args[0] == "--z3-script")) {
    std::string why;
    auto script = orvo::bench::workload_script(args[1], why);
    if (!script) {
      std::cerr << "orvo_itp_e2e_process: " << args[1] << ": " << why << "\n";
      return 1;
    }
    std::cout << (args[0] == "--script" ? *script : orvo::bench::z3_form(*script));
    return 0;
  }

  int reps = 5;
  std::string program = ORVO_ITP_PROGRAM;
  std::string dir = "build/perf/e2e";
  std::string samples_path;
  std::vector<std::string> names;
  for (std::size_t i = 0; i < args.size(); ++i) {
    bool const has_value = i + 1 < args.size();
    if (args[i] == "--reps" && has_value) {
      reps = std::max(1, std::atoi(args[++i].c_str()));
    } else if (args[i] == "--program" && has_value) {
      program = args[++i];
    } else if (args[i] == "--dir" && has_value) {
      dir = args[++i];
    } else if (args[i] == "--samples" && has_value) {
      samples_path = args[++i];
    } else if (args[i].rfind("--", 0) == 0) {
      return usage();
    } else {
      names.push_back(args[i]);
    }
  }
  if (names.empty()) names = orvo::bench::default_workloads();
  std::filesystem::create_directories(dir);
  std::string const self = self_path();
  std::ofstream samples;
  if (!samples_path.empty()) {
    samples.open(samples_path);
    samples << "workload\tround\tcontender\twall_s\tcpu_s\tpeak_mb\n";
  }

  std::cout << "| workload | z3 reads it: CPU | ours: CPU | time ratio | wall ratio | z3: peak"
               " | ours: peak | base: peak | memory ratio | above base |\n"
               "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n";
  for (std::string const& name : names) {
    std::string why;
    auto script = orvo::bench::workload_script(name, why);
    if (!script) {
      std::cerr << "orvo_itp_e2e_process: skipping " << name << ": " << why << "\n";
      continue;
    }
    std::string file = name;
    std::replace(file.begin(), file.end(), '/', '-');
    std::string const ours_path = dir + "/" + file + ".smt2";
    std::string const z3_path = dir + "/" + file + ".z3.smt2";
    write_file(ours_path, *script);
    write_file(z3_path, orvo::bench::z3_form(*script));
    script.reset();

    char const* const contenders[] = {"program", "z3", "base"};
    std::map<std::string, std::vector<Sample>> got;
    for (int r = 0; r < reps; ++r) {
      for (int k = 0; k < 3; ++k) {
        std::string const c = contenders[(r + k) % 3];
        Sample const s = c == "program" ? measure({program, ours_path})
                         : c == "z3"    ? measure({self, "--z3-read", z3_path})
                                        : measure({self, "--base", z3_path});
        got[c].push_back(s);
        if (samples.is_open())
          samples << name << "\t" << r << "\t" << c << "\t" << s.wall << "\t" << s.cpu << "\t"
                  << s.rss << "\n";
      }
    }
    auto column = [&](char const* c, double Sample::*field) {
      std::vector<double> v;
      for (Sample const& s : got[c])
        v.push_back(s.*field);
      return v;
    };
    double const ours_cpu = median(column("program", &Sample::cpu));
    double const z3_cpu = median(column("z3", &Sample::cpu));
    double const ours_rss = median(column("program", &Sample::rss));
    double const z3_rss = median(column("z3", &Sample::rss));
    double const base_rss = median(column("base", &Sample::rss));
    double const wall_ratio =
        median(column("program", &Sample::wall)) / median(column("z3", &Sample::wall));
    char ratios[200];
    std::snprintf(ratios, sizeof ratios, "%.1fx | %.1fx | %s | %s | %s | %.1fx | %.1fx",
                  ours_cpu / z3_cpu, wall_ratio,
                  spread(column("z3", &Sample::rss), " MB", 0).c_str(),
                  spread(column("program", &Sample::rss), " MB", 0).c_str(),
                  spread(column("base", &Sample::rss), " MB", 0).c_str(), ours_rss / z3_rss,
                  (ours_rss - base_rss) / (z3_rss - base_rss));
    std::cout << "| " << name << " | " << spread(column("z3", &Sample::cpu), " s", 2) << " | "
              << spread(column("program", &Sample::cpu), " s", 2) << " | " << ratios << " |\n";
    std::cout.flush();
  }
  return 0;
}
