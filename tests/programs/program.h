// A program run as a user runs it, through the shell: what it writes on
// standard output and standard error, and its exit status.
#ifndef ORVO_ITP_TESTS_PROGRAMS_PROGRAM_H
#define ORVO_ITP_TESTS_PROGRAMS_PROGRAM_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

struct ProgramRun {
  int status = -1;  // -1: killed by a signal
  std::string out, err;
};

// `args` may hold redirections. Tests run in parallel processes: standard
// error goes to a file of this process's own.
inline ProgramRun run_program(std::string const& program, std::string const& args) {
  std::filesystem::path const err = std::filesystem::temp_directory_path() /
                                    ("orvo-itp-program-" + std::to_string(::getpid()) + ".err");
  std::string const command = program + " " + args + " 2>" + err.string();
  ProgramRun r;
  std::FILE* p = popen(command.c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
    r.out.append(buf, n);
  int const status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::ifstream in(err);
  std::stringstream s;
  s << in.rdbuf();
  r.err = s.str();
  std::filesystem::remove(err);
  return r;
}

#endif  // ORVO_ITP_TESTS_PROGRAMS_PROGRAM_H
