// ptrace. A call that fails is not made at all: its number becomes -1, its result the error. Once the fault is in, the
// rest runs untraced but for new tasks, which must be known so that nothing survives.
#include "tracer.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace faults {
namespace {

constexpr int kMostSeconds = 10;
constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                          PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

volatile std::sig_atomic_t gExpired = 0;

void SetTimer(int seconds) {
  gExpired = 0;
  struct sigaction action {};
  action.sa_handler = [](int) { gExpired = 1; };
  sigaction(SIGALRM, &action, nullptr);  // no SA_RESTART: waitpid must return
  const itimerval timer = {{seconds, 0}, {seconds, 0}}, off = {};
  setitimer(ITIMER_REAL, seconds ? &timer : &off, nullptr);
}

void SetRegister(pid_t task, std::size_t place, long value) { ptrace(PTRACE_POKEUSER, task, place, value); }

class Run {
 public:
  Run(const Injection& injection, const Watch& watch) : injection_(injection), watch_(watch) {}

  Ending Follow(pid_t main) {
    main_ = main;
    tasks_[main];
    SetTimer(kMostSeconds);
    while (!tasks_.empty()) {
      int status = 0;
      const pid_t task = waitpid(-1, &status, __WALL);
      if (task > 0) See(task, status);
      if (task < 0 && errno != EINTR) throw std::runtime_error("the traced processes are lost");
      if (gExpired) {
        if (ending_.hung) throw std::runtime_error("the traced processes do not end");
        gExpired = 0;
        ending_.hung = true;
        KillAll();
      }
    }
    SetTimer(0);
    return ending_;
  }

 private:
  struct Task {
    int number = 0;
    bool foreign = false;  // runs another program
    std::map<long, int> calls;
    Point current;  // the call it is in
  };

  void See(pid_t task, int status) {
    if (!WIFSTOPPED(status)) {
      if (task == main_) ending_.status = status;
      tasks_.erase(task);  // nothing where it is no traced one
      gone_.insert(task);
      return;
    }
    if (marks_ == 0 && task != main_) {  // born while an earlier run was being killed
      kill(task, SIGKILL);
      return;
    }
    Task& known = Know(task);
    int signal = WSTOPSIG(status);
    const bool ours = signal == (SIGTRAP | 0x80) || status >> 16 != 0 || signal == SIGSTOP;
    if (signal == (SIGTRAP | 0x80))
      SeeCall(task, known);
    else if (status >> 16 != 0)
      SeeEvent(task, known, status >> 16);
    else if (signal == SIGSTOP && task == main_)  // a mark, and not the first stop of a new task
      SeeMark();
    if (ours) signal = 0;
    if (killed_) kill(task, SIGKILL);
    const bool calls = (tracing_ || &known == struck_) && !known.foreign;
    ptrace(calls ? PTRACE_SYSCALL : PTRACE_CONT, task, 0, signal);
  }

  Task& Know(pid_t task) {
    const auto [place, isNew] = tasks_.try_emplace(task);
    if (isNew) place->second.number = ++lastNumber_;
    return place->second;
  }

  void SeeEvent(pid_t task, Task& known, int event) {
    if (event == PTRACE_EVENT_EXEC) {
      known.foreign = true;
      return;
    }
    unsigned long child = 0;
    ptrace(PTRACE_GETEVENTMSG, task, 0, &child);
    if (gone_.count(static_cast<pid_t>(child)) == 0) Know(static_cast<pid_t>(child));
  }

  void SeeMark() {
    if (++marks_ == 1) {
      ptrace(PTRACE_SETOPTIONS, main_, 0, kOptions);
      tracing_ = injection_.kind != Kind::kMemory && (injection_.kind != Kind::kNone || watch_);
      return;
    }
    tracing_ = false;
    const std::string id = std::to_string(main_);
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    ending_.left = children.good() && children.peek() != std::ifstream::traits_type::eof();
    const std::filesystem::directory_iterator descriptors("/proc/" + id + "/fd");
    ending_.descriptors = static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
  }

  void SeeCall(pid_t task, Task& known) {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, task, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT) return SeeResult(task, known);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY || !tracing_) return;
    const long number = static_cast<long>(info.entry.nr);
    if (number == SYS_kill && info.entry.args[1] == SIGSTOP) return;  // a mark
    known.current = {known.number, number, known.calls[number]++};
    if (watch_) watch_(known.current, info.entry.args[1], false);
    if (injection_.kind == Kind::kNone || !(known.current == injection_.at)) return;
    ending_.reached = true;
    if (injection_.kind == Kind::kKill) return KillAll();
    struck_ = &known;
    if (injection_.kind != Kind::kFail) return;
    const bool setsIds = number == SYS_setresuid || number == SYS_setresgid;
    ending_.keptIds = setsIds && static_cast<unsigned int>(info.entry.args[1]) != 0;
    SetRegister(task, offsetof(user_regs_struct, orig_rax), -1);  // it is not made
  }

  void SeeResult(pid_t task, Task& known) {
    if (watch_ && tracing_) watch_(known.current, 0, true);
    if (struck_ != &known) return;
    struck_ = nullptr;
    tracing_ = false;
    if (injection_.kind == Kind::kKillAfter) return KillAll();
    SetRegister(task, offsetof(user_regs_struct, rax), -injection_.error);
  }

  void KillAll() {
    killed_ = true;
    for (const auto& entry : tasks_) kill(entry.first, SIGKILL);
  }

  const Injection& injection_;
  const Watch& watch_;
  Ending ending_;
  std::map<pid_t, Task> tasks_;
  std::set<pid_t> gone_;    // a child may end before its parent's report of it is seen
  Task* struck_ = nullptr;  // the task that is in the call struck
  pid_t main_ = 0;
  int lastNumber_ = 0, marks_ = 0;
  bool tracing_ = false, killed_ = false;
};

}  // namespace

void StopHere(pid_t self) { kill(self, SIGSTOP); }

Ending RunTraced(const std::function<void()>& work, const Injection& injection, const Watch& watch) {
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process can be started");
  if (child == 0) {
    signal(SIGALRM, SIG_DFL);
    ptrace(PTRACE_TRACEME, 0, 0, 0);
    work();
    _exit(0);
  }
  return Run(injection, watch).Follow(child);
}

}  // namespace faults
