// What every host does around its road: options in, one clear line and a non-zero exit when something is wrong.
#ifndef KORVA_EXAMPLES_HOST_RUN_H
#define KORVA_EXAMPLES_HOST_RUN_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "host_error.h"

namespace host {

// Checks an option's text before it is converted, so that 0, -1, 1e9 and 99999999999999999999 get the same answer.
CLI::Validator wholeNumber(unsigned long least, unsigned long most);
CLI::Validator positiveNumber();
CLI::Validator fraction();

// Parses the command line, then runs the road. Returns the process's exit status: 0, 1 for a fault met on the way,
// 2 for a wrong option. A fault is told on stderr in exactly one line.
int runHost(CLI::App& app, int argc, char** argv, std::function<void()> const& road);

}  // namespace host

#endif
