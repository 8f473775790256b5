// Reading a script or a responses file: a path, or "-" for standard input.
#ifndef ORVO_ITP_SMTLIB_INPUT_H
#define ORVO_ITP_SMTLIB_INPUT_H

#include <string>

namespace orvo {
namespace smtlib {

// The whole content of `path` ("-": standard input). Throws ScriptError at
// 1:1 when it cannot be read: missing, a directory, a read error.
std::string read_input(std::string const& path);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_INPUT_H
