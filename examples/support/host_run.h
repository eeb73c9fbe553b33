// What every host does around its road: options in, one clear line and a non-zero exit when something is wrong.
#ifndef KORVA_EXAMPLES_HOST_RUN_H
#define KORVA_EXAMPLES_HOST_RUN_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host_error.h"

namespace CLI {
class App;
}

namespace host {

// Whole numbers that an option takes.
struct Whole {
  unsigned long least;
  unsigned long most;
  unsigned long multipleOf = 1;
};

// Finite numbers that an option takes.
enum class Number { aboveZero, zeroToOne };

// The command line of a host. Values are checked as text before they are converted, so that 0, -1, 1e9 and
// 99999999999999999999 get the same clear answer.
class CommandLine {
 public:
  CommandLine(std::string const& program, std::string const& purpose);
  ~CommandLine();
  CommandLine(CommandLine const&) = delete;
  CommandLine& operator=(CommandLine const&) = delete;

  void add(std::string const& name, std::string& value, std::string const& help);
  void add(std::string const& name, std::vector<std::string>& values, std::string const& help);
  void add(std::string const& name, bool& given, std::string const& help);
  void add(std::string const& name, unsigned long& value, Whole range, std::string const& help);
  void add(std::string const& name, unsigned short& value, Whole range, std::string const& help);
  void add(std::string const& name, std::vector<unsigned long>& values, int count, Whole range,
           std::string const& help);
  void add(std::string const& name, double& value, Number range, std::string const& help);
  void add(std::string const& name, std::vector<double>& values, Number range, std::string const& help);
  // The first option makes sense only together with the second, or only without it.
  void needs(std::string const& name, std::string const& other);
  void excludes(std::string const& name, std::string const& other);

  // Parses the command line, then runs the road. Returns the process's exit status: 0, 1 for a fault met on the way,
  // 2 for a wrong option. A fault is told on stderr in exactly one line.
  int run(int argc, char** argv, std::function<void()> const& road);

 private:
  std::unique_ptr<CLI::App> app_;
};

}  // namespace host

#endif
