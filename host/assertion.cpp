// The diagnostic hook behind Exception::dump_msg_and_raise_assertion().
#include "host/host.h"

namespace orvo {

namespace {
AssertionHandler current_handler = nullptr;
}  // namespace

AssertionHandler set_assertion_handler(AssertionHandler handler) noexcept {
  AssertionHandler previous = current_handler;
  current_handler = handler;
  return previous;
}

void Exception::dump_msg_and_raise_assertion() {
  if (current_handler != nullptr) current_handler(*this);
}

}  // namespace orvo
