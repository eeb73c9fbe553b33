#include "host_run.h"

#include <CLI/CLI.hpp>
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

CLI::Validator checkFor(Whole const& range) {
  std::string wanted = "a whole number from " + std::to_string(range.least) + " to " + std::to_string(range.most);
  if (range.multipleOf > 1) wanted += ", a multiple of " + std::to_string(range.multipleOf);
  return {[=](std::string& text) {
            unsigned long value = 0;
            auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            bool const whole = error == std::errc() && end == text.data() + text.size();
            bool const fits = value >= range.least && value <= range.most && value % range.multipleOf == 0;
            return whole && fits ? std::string() : "expected " + wanted + ", found '" + text + "'";
          },
          ""};
}

CLI::Validator checkFor(Number range) {
  return {[=](std::string& text) {
            double value = 0;
            bool const fraction = range == Number::zeroToOne;
            bool const number = parseNumber(text, value);
            if (number && (fraction ? value >= 0 && value <= 1 : value > 0)) return std::string();
            return std::string("expected a number ") + (fraction ? "from 0 to 1" : "above 0") + ", found '" + text +
                   "'";
          },
          ""};
}

}  // namespace

void stopIfInterrupted() {
  if (stopSignal != 0) throw HostError("stopped on request; nothing was written");
}

CommandLine::CommandLine(std::string const& program, std::string const& purpose)
    : app_(std::make_unique<CLI::App>(purpose, program)) {}

CommandLine::~CommandLine() = default;

void CommandLine::add(std::string const& name, std::string& value, std::string const& help) {
  app_->add_option(name, value, help);
}

void CommandLine::add(std::string const& name, std::vector<std::string>& values, std::string const& help) {
  app_->add_option(name, values, help)->expected(1, 1000000);
}

void CommandLine::add(std::string const& name, bool& given, std::string const& help) {
  app_->add_flag(name, given, help);
}

void CommandLine::add(std::string const& name, unsigned long& value, Whole range, std::string const& help) {
  app_->add_option(name, value, help)->check(checkFor(range));
}

void CommandLine::add(std::string const& name, unsigned short& value, Whole range, std::string const& help) {
  app_->add_option(name, value, help)->check(checkFor(range));
}

void CommandLine::add(std::string const& name, std::vector<unsigned long>& values, int count, Whole range,
                      std::string const& help) {
  app_->add_option(name, values, help)->expected(count)->check(checkFor(range));
}

void CommandLine::add(std::string const& name, double& value, Number range, std::string const& help) {
  app_->add_option(name, value, help)->check(checkFor(range));
}

void CommandLine::add(std::string const& name, std::vector<double>& values, Number range, std::string const& help) {
  app_->add_option(name, values, help)->check(checkFor(range));
}

void CommandLine::needs(std::string const& name, std::string const& other) {
  app_->get_option(name)->needs(app_->get_option(other));
}

void CommandLine::excludes(std::string const& name, std::string const& other) {
  app_->get_option(name)->excludes(app_->get_option(other));
}

int CommandLine::run(int argc, char** argv, std::function<void()> const& road) {
  std::string const program = app_->get_name();
  std::signal(SIGINT, rememberSignal);
  std::signal(SIGTERM, rememberSignal);
  // A reader that goes away shows as a failed write to standard output, checked below.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    app_->parse(argc, argv);
    road();
  } catch (CLI::Success const& answer) {
    app_->exit(answer);
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
