#include "support/exception.h"

namespace orvo {

Exception::Exception(std::string const& msg, bool raise_assertion) {
  stream_ << msg;
  if (raise_assertion) dump_msg_and_raise_assertion();
}

Exception::Exception(Exception const& other) : std::exception(other) {
  stream_ << other.what();
}

Exception::~Exception() noexcept = default;

char const* Exception::what() const noexcept {
  try {
    text_ = stream_.str();
    return text_.c_str();
  } catch (...) {
    return "";
  }
}

}  // namespace orvo
