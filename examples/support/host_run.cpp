#include "host_run.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace host {
namespace {

volatile std::sig_atomic_t stopSignal = 0;

extern "C" void rememberSignal(int signal) { stopSignal = signal; }

bool parseNumber(std::string const& text, double& value) {
  char* end = nullptr;
  value = std::strtod(text.c_str(), &end);
  return !text.empty() && end == text.c_str() + text.size() && std::isfinite(value);
}

int fail(std::string const& program, std::string message, int status) {
  for (char& character : message) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s\n", program.c_str(), message.c_str());
  return status;
}

}  // namespace

CLI::Validator wholeNumber(unsigned long least, unsigned long most) {
  std::string const range = std::to_string(least) + " to " + std::to_string(most);
  return {[=](std::string& text) {
            unsigned long value = 0;
            auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            bool const whole = error == std::errc() && end == text.data() + text.size();
            if (whole && value >= least && value <= most) return std::string();
            return "expected a whole number from " + range + ", found '" + text + "'";
          },
          range};
}

CLI::Validator positiveNumber() {
  return {[](std::string& text) {
            double value = 0;
            if (parseNumber(text, value) && value > 0) return std::string();
            return "expected a number above 0, found '" + text + "'";
          },
          "> 0"};
}

CLI::Validator fraction() {
  return {[](std::string& text) {
            double value = 0;
            if (parseNumber(text, value) && value >= 0 && value <= 1) return std::string();
            return "expected a number from 0 to 1, found '" + text + "'";
          },
          "0 to 1"};
}

void stopIfInterrupted() {
  if (stopSignal != 0) throw HostError("stopped on request; nothing was written");
}

int runHost(CLI::App& app, int argc, char** argv, std::function<void()> const& road) {
  std::string const program = app.get_name();
  std::signal(SIGINT, rememberSignal);
  std::signal(SIGTERM, rememberSignal);
  // A reader that goes away shows as a failed write to standard output, checked below.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    app.parse(argc, argv);
    road();
  } catch (CLI::Success const& answer) {
    app.exit(answer);
  } catch (CLI::ParseError const& error) {
    return fail(program, std::string(error.what()) + " (see --help)", 2);
  } catch (std::bad_alloc const&) {
    return fail(program, "not enough memory", 1);
  } catch (std::exception const& error) {
    return fail(program, error.what(), 1);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    return fail(program, std::string("standard output cannot be written: ") + std::strerror(errno), 1);
  }
  return 0;
}

}  // namespace host
