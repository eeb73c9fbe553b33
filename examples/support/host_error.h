#ifndef KORVA_EXAMPLES_HOST_ERROR_H
#define KORVA_EXAMPLES_HOST_ERROR_H

#include <stdexcept>

namespace host {

// A fault that the user can mend; the message says what was expected and what was found.
class HostError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Largest width, height or repeat that a host accepts. A plane of that size still counts its samples in 32 bits.
inline constexpr unsigned long kLargestSize = 65535;

// Throws once the user has asked to stop (Ctrl-C), so that the owners on the way clean up.
void stopIfInterrupted();

}  // namespace host

#endif
