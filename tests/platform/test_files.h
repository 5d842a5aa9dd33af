// Files and processes for the tests of the platform. Everything runs inside the sandbox, as root.
#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <varn/platform.h>

#include "support/process.h"

using testsupport::ModeAndOwner;

inline std::string Slurp(const std::string& path) { return testsupport::ReadFile(path); }

inline void Spill(const std::string& path, const std::string& text, mode_t mode = 0644) {
  unlink(path.c_str());
  std::ofstream(path, std::ios::binary) << text;
  chmod(path.c_str(), mode);
}

/// Runs `body` in a child that ends with its result; the child's process id.
template <class Body>
pid_t InChild(Body body) {
  fflush(nullptr);  // or the child may write what is still buffered a second time
  const pid_t pid = VLIBCProcFork();
  if (pid == 0) _exit(body());
  return pid;
}

/// The child's exit status, or minus the signal that ended it.
inline int Await(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1000;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// How many of `count` children, every second of them the account service, ended with anything but 0.
template <class Body>
int FailuresOf(int count, Body body) {
  std::vector<pid_t> children;
  for (int child = 0; child < count; ++child)
    children.push_back(InChild([&] {
      const bool failed = child % 2 == 0 && (setresgid(934, 934, 934) != 0 || setresuid(934, 934, 934) != 0);
      return failed ? 99 : body(child);
    }));
  int failures = 0;
  for (const pid_t child : children) failures += Await(child) != 0;
  return failures;
}
