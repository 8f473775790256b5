// The system's exception: a message assembled piece by piece with << after
// the object exists, read back with what().
#ifndef ORVO_ITP_SUPPORT_EXCEPTION_H
#define ORVO_ITP_SUPPORT_EXCEPTION_H

#include <exception>
#include <sstream>
#include <string>

namespace orvo {

class Exception : public std::exception {
 public:
  // Writes `msg` into the message; with `raise_assertion` set, then calls
  // dump_msg_and_raise_assertion() as the very last step.
  Exception(std::string const& msg, bool raise_assertion);
  // Copies the source's text as it stands; never calls the hook.
  Exception(Exception const& other);
  Exception& operator=(Exception const&) = delete;
  ~Exception() noexcept override;

  // The message so far. The pointer stays valid until the next what() on this
  // object, the next copy made from it, or its destruction. Never throws: on
  // memory exhaustion the text is empty.
  char const* what() const noexcept override;

  // Appends `value` with the stream's ordinary formatting.
  template <class T>
  Exception& operator<<(T const& value) {
    stream_ << value;
    return *this;
  }

  // Diagnostic hook, supplied by the host (see set_assertion_handler).
  void dump_msg_and_raise_assertion();

 private:
  std::ostringstream stream_;  // the message
  mutable std::string text_;   // what() cache, refreshed on every read
};

}  // namespace orvo

#endif  // ORVO_ITP_SUPPORT_EXCEPTION_H
