// Children talk back over a pipe; the simulator stays with the parent.
#include "process.h"

#include <json/value.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace conditions {
namespace {

constexpr unsigned int kPatience = 120;  // seconds

std::string Outcome(const char* name, int result) {
  return std::string(name) + " " + std::to_string(result) + " " + std::to_string(VARNKIVOErrGet());
}

}  // namespace

kivosim::Simulator& FreshCloud() {
  static kivosim::Simulator* const simulator = [] {
    auto* made = new kivosim::Simulator(kivosim::Options{});  // lives as long as the process
    made->Start();
    return made;
  }();
  simulator->Reset();
  kivosim::Account ann{kEmail, kPassword, kUserId};
  simulator->AddAccount(ann);
  std::filesystem::remove(kRecord);
  return *simulator;
}

std::string InChild(const std::function<std::string()>& work) {
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
  ssize_t got;
  while ((got = read(ends[0], block, sizeof block)) > 0) result.append(block, static_cast<std::size_t>(got));
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0 ? result : "ended with status " + std::to_string(status) + " " + result;
}

std::string Login() {
  Json::Value response;
  return Outcome("login", VARNKIVOAccountLogin(kEmail, kPassword, response, false));
}

std::string Query() {
  try {
    varnkivo::User().SetLastQueryTime(0);
  } catch (...) {
  }
  Json::Value out;
  VARNKIVOErrSet(0);
  return Outcome("query", VARNKIVOAccountQueryInfo(out, true, true));
}

std::string Set() {
  static _tag_kivo_INFO_ info = {};
  if (VARNKIVOAccountGet(&info) != 0) return Outcome("get", -1);
  info.lastQueryTime = 1;
  return Outcome("set", VARNKIVOAccountSet(&info));
}

std::string Remove() { return "remove " + std::to_string(VARNKIVOAccountRemove()); }

std::string Everything() {
  std::string all = Login();  // one after the other: the operands of + have no order
  all += ", " + Query();
  all += ", " + Set();
  all += ", " + Remove();
  return all + (access(kRecord, F_OK) == 0 ? ", a record" : ", no record");
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::size_t OpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

long ResidentKibibytes() {
  long pages[2] = {};
  std::sscanf(ReadFile("/proc/self/statm").c_str(), "%ld %ld", &pages[0], &pages[1]);
  return pages[1] * sysconf(_SC_PAGESIZE) / 1024;
}

}  // namespace conditions
