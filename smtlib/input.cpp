#include "smtlib/input.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "smtlib/sexpr.h"

namespace orvo {
namespace smtlib {

std::string read_input(std::string const& path) {
  bool const standard = path == "-";
  struct stat info {};
  if (!standard && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
    throw ScriptError(Position{}, "cannot read the file: it is a directory");
  std::FILE* in = standard ? stdin : std::fopen(path.c_str(), "rb");
  if (in == nullptr)
    throw ScriptError(Position{}, std::string("cannot open the file: ") + std::strerror(errno));
  std::string text;
  char buf[1 << 16];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, in)) > 0)
    text.append(buf, n);
  bool const bad = std::ferror(in) != 0;
  int const error = errno;
  if (!standard) std::fclose(in);
  if (bad)
    throw ScriptError(Position{}, std::string(standard ? "cannot read standard input: "
                                                       : "cannot read the file: ") +
                                      std::strerror(error));
  return text;
}

}  // namespace smtlib
}  // namespace orvo
