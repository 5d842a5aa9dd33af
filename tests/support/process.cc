// Children talk back over a pipe.
#include "process.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

namespace testsupport {

std::string InChild(const std::function<std::string()>& work) {
  constexpr unsigned int kPatience = 600;  // seconds
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    alarm(kPatience);
    const std::string result = work();
    _exit(write(ends[1], result.data(), result.size()) == static_cast<ssize_t>(result.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string result;
  char block[4096];
  for (ssize_t got; (got = read(ends[0], block, sizeof block)) > 0;)
    result.append(block, static_cast<std::size_t>(got));
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0 ? result : "ended with status " + std::to_string(status) + " " + result;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) ADD_FAILURE() << path << " could not be written";
}

void WritePrivateFile(const std::string& path, const std::string& content) {
  WriteFile(path, content);
  EXPECT_TRUE(chmod(path.c_str(), 0600) == 0 && chown(path.c_str(), 934, 934) == 0) << path;
}

std::string ModeAndOwner(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return "none";
  char text[64];
  std::snprintf(text, sizeof text, "%04o %u:%u", status.st_mode & 07777u, status.st_uid, status.st_gid);
  return text;
}

std::string Ids() {
  uid_t u[3];
  gid_t g[3];
  if (getresuid(&u[0], &u[1], &u[2]) != 0 || getresgid(&g[0], &g[1], &g[2]) != 0) return "";
  std::ostringstream out;
  out << u[0] << ',' << u[1] << ',' << u[2] << ' ' << g[0] << ',' << g[1] << ',' << g[2];
  return out.str();
}

}  // namespace testsupport
