// The environment variables for a child process, collected one by one. A builder without variables
// means that the child inherits the program's environment. One thread at a time; operations that
// read the program's own environment must not run beside a setenv().
#pragma once

#include <map>
#include <string>
#include <vector>

namespace kestrel {

class EnvironmentBuilder {
 public:
  // Sets or replaces one variable; an empty value is a value. A name that is empty or holds "=" or
  // a NUL names no variable and is ignored. A value ends at its first NUL.
  void setVariable(const std::string& name, const std::string& value);
  // Drops all variables and takes those of `envp`, a null-terminated array of "NAME=VALUE"; of two
  // with one name the last one wins, entries without a name or without "=" are ignored. Null leaves
  // no variables.
  void copyEnv(const char* const* envp);
  // Adds every variable of the program's environment whose name is not set yet. (The spelling is
  // kept: callers use it.)
  void appendCurrentEnvironnment();
  // As appendCurrentEnvironnment(), but only what a command needs to find programs, its user, its
  // terminal, its temporary files and its locale: PATH, HOME, USER, LOGNAME, SHELL, TERM, TMPDIR,
  // TZ, LANG and the LC_ variables.
  void appendMinimalEnvironnment();

  bool isEmpty() const { return variables_.empty(); }
  const std::map<std::string, std::string>& getVariables() const { return variables_; }
  // "NAME=VALUE" for each variable, in ascending order of the names.
  std::vector<std::string> toStrings() const;

 private:
  void _append(bool minimalOnly);

  std::map<std::string, std::string> variables_;  // key: name
};

}  // namespace kestrel
