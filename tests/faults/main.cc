// varnkivo-faults [--scenario NAME] [--sample N/M] [--only SCENARIO:KIND:POINT[:ERRNO]] [--list]
//
// Runs each operation once without a fault, and then with a fault at every place: killed before each system call and
// after those that change a file; each call that can fail failing with each error it knows; each allocation of the
// library failing. --sample tries the N-th of M parts, each spread over all places.
// --only repeats one, and shows what was logged. Ends with 1 when anything was left broken. Only inside the sandbox.
#include <getopt.h>
#include <grp.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <map>
#include <new>
#include <sstream>
#include <stdexcept>

#include "allocations.h"
#include "checker.h"
#include "cloud_process.h"
#include "token_file.h"
#include "token_scenarios.h"

extern "C" unsigned int sleep(unsigned int) { return 0; }  // the library's pauses before another attempt

namespace faults {
namespace {

struct Choice {
  std::string scenario, only;
  std::size_t part = 1, parts = 1;
  bool list = false;
};

struct Tally {
  int killed = 0, failed = 0, memory = 0, notReached = 0;
  int left[5] = {};  // by Left
};

class Campaign {
 public:
  Campaign(const Scenario& scenario, CloudProcess& cloud, Device& device, Told& told)
      : scenario_(scenario), cloud_(cloud), device_(device), told_(told) {}

  /// The run without a fault: collects what is allowed, and every fault that could be put in.
  std::vector<Injection> Count() {
    std::vector<Injection> kills, failures;
    const auto watch = [&](const Point& point, std::uint64_t second, bool done) {
      if (done) {
        if (ChangesFile(point.call)) kills.push_back({Kind::kKillAfter, point});
        if (IsReplacement(point.call)) NoteRecord();
        return;
      }
      kills.push_back({Kind::kKill, point});
      for (const int error : ErrorsOf(point.call, second)) failures.push_back({Kind::kFail, point, error});
    };
    Reset();
    NoteRecord();
    const Ending ending = Run({}, watch);
    NoteRecord();
    if (!told_.finished || told_.result < 0 || !HasChangedSomething())
      throw std::runtime_error(std::string(scenario_.name) + " does not work without a fault:\n" + device_.Log());
    reference_.result = told_.result;
    reference_.descriptors = ending.descriptors;
    reference_.job = JobIn(device_.Files());
    if (scenario_.tokens == Tokens::kRemoved) reference_.job = JobIn(before_);
    kills.insert(kills.end(), failures.begin(), failures.end());
    for (int i = 1; i <= AllocationCount(); ++i) kills.push_back({Kind::kMemory, {}, 0, i});
    return kills;
  }

  void Try(const Injection& injection, bool talk) {
    talk_ = talk;
    Reset();
    Checker checker(scenario_, reference_, before_);
    Outcome outcome = {injection, Run(injection), told_, ""};
    const bool reached =
        outcome.ending.reached || (injection.kind == Kind::kMemory && AllocationCount() >= injection.allocation);
    if (talk) std::printf("result %d, finished %d, log:\n%s", told_.result, told_.finished, device_.Log().c_str());
    if (scenario_.tokens != Tokens::kNone) outcome.log = device_.Log();
    checker.CheckFault(device_, outcome);
    Repeat();
    checker.CheckRepetition(device_, told_, TokensAreGood());
    checker.CheckLog(device_.Log(), device_, lines_);
    if (scenario_.tokens == Tokens::kReplaced && checker.LeavesRoom(device_.Files())) {
      RunAs(0, &LogoutLocally, {}, nullptr);
      checker.CheckSignedOut(device_, told_);
    }
    Count(injection, reached, checker);
  }

  bool Print(double seconds) const {
    std::printf(
        "%-12s killed %d, failed %d, memory %d (not reached: %d): old %d, new %d, partway %d, signed out %d, "
        "broken %d; %.1f s\n",
        scenario_.name, tally_.killed, tally_.failed, tally_.memory, tally_.notReached, tally_.left[0], tally_.left[1],
        tally_.left[2], tally_.left[3], tally_.left[4], seconds);
    return tally_.left[static_cast<int>(Left::kBroken)] == 0;
  }

 private:
  void Reset() {
    device_.Reset(scenario_.record);
    cloud_.Reset();
    lines_ = {""};
    if (scenario_.prepare) {
      std::istringstream text(cloud_.Run(scenario_.prepare));
      for (std::string line; std::getline(text, line);) lines_.push_back(line);
    }
    UseLine(lines_[lines_.size() > 1 ? 1 : 0]);
    before_ = device_.Files();
  }

  static std::string JobIn(const std::map<std::string, File>& files) {
    const auto found = files.find(std::string(kCron) + "kivo");
    return found == files.end() ? "" : found->second.content;
  }

  bool HasChangedSomething() {
    if (scenario_.tokens == Tokens::kReplaced) return TokensAreGood();
    return reference_.records.size() >= 2 || scenario_.recordStays;
  }

  bool TokensAreGood() {
    if (scenario_.tokens != Tokens::kReplaced) return true;
    const std::string token = RefreshToken(device_.Files()[std::string(kPrivate) + "lum_token.json"].content);
    return cloud_.Run(&IsPresent, token) == "yes";
  }

  /// A record that is written in place has no state that may be seen.
  static bool IsReplacement(long call) {
    const std::string name = NameOf(call);
    return name.rfind("rename", 0) == 0 || name.rfind("unlink", 0) == 0;
  }

  void NoteRecord() {
    const auto record = device_.Record();
    if (reference_.records.empty() || reference_.records.back() != record) reference_.records.push_back(record);
  }

  Ending Run(const Injection& injection, const Watch& watch = nullptr) {
    return RunAs(scenario_.uid, scenario_.run, injection, watch);
  }

  Ending RunAs(uid_t uid, int (*run)(), const Injection& injection, const Watch& watch) {
    told_ = {};
    FailAllocation(injection.allocation);
    return RunTraced([=] { Work(uid, run); }, injection, watch);
  }

  void Repeat() {
    UseLine(lines_.back());
    const bool forgotten = scenario_.again && cloud_.Run(&KnowsDevice) != "yes";
    RunAs(scenario_.uid, forgotten ? scenario_.again : scenario_.run, {}, nullptr);
  }

  /// In the child. Its own words (of the runtime, on the way to an abort) are for nobody.
  void Work(uid_t uid, int (*run)()) {
    const pid_t self = getpid();
    if (!talk_ && !std::freopen("/dev/null", "w", stderr)) _exit(98);
    if (uid != 0 && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, 0) != 0 || setresuid(uid, uid, 0) != 0))
      _exit(99);
    openlog(nullptr, LOG_NDELAY, LOG_USER);  // its socket is there from the start, whether a line follows or not
    StopHere(self);
    try {
      told_.result = run();
    } catch (...) {
      told_.threw = true;
    }
    StopHere(self);
    told_.uid = geteuid();
    told_.gid = getegid();
    told_.finished = true;
  }

  void Count(const Injection& injection, bool reached, const Checker& checker) {
    const Kind kind = injection.kind;
    ++(kind == Kind::kMemory ? tally_.memory : kind == Kind::kFail ? tally_.failed : tally_.killed);
    if (!reached) ++tally_.notReached;
    ++tally_.left[static_cast<int>(checker.Result())];
    for (std::string complaint : checker.Complaints()) {
      std::replace(complaint.begin(), complaint.end(), '\n', ' ');
      std::printf("broken: --only %s:%s: %s\n", scenario_.name, Text(injection).c_str(), complaint.c_str());
    }
  }

  const Scenario& scenario_;
  CloudProcess& cloud_;
  Device& device_;
  Told& told_;
  Reference reference_;
  std::map<std::string, File> before_;
  std::vector<std::string> lines_;  // for UseLine; the first is empty
  Tally tally_;
  bool talk_ = false;
};

/// Which part a fault belongs to: by its name, as the number of polls, and with it an index, differs from run to run.
std::size_t PartOf(const std::string& name, std::size_t parts) {
  std::uint32_t hash = 2166136261u;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return hash % parts + 1;
}

/// Whether nothing was broken.
bool RunScenario(const Scenario& scenario, const Choice& choice, CloudProcess& cloud, Device& device, Told& told) {
  const auto begin = std::chrono::steady_clock::now();
  Campaign campaign(scenario, cloud, device, told);
  const std::vector<Injection> all = campaign.Count();
  bool found = choice.only.empty();
  for (const Injection& injection : all) {
    const std::string name = std::string(scenario.name) + ":" + Text(injection);
    const bool isOnly = name == choice.only;
    if (choice.list) std::printf("%s\n", name.c_str());
    if (choice.list || (choice.only.empty() ? PartOf(name, choice.parts) != choice.part : !isOnly)) continue;
    found = true;
    campaign.Try(injection, isOnly);
  }
  if (!found) throw std::runtime_error("no such fault: " + choice.only);
  return choice.list || campaign.Print(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
}

/// What is emptied here must be nobody's.
void RequireSandbox() {
  for (const pid_t process : {pid_t{1}, getppid()}) {
    std::ifstream line("/proc/" + std::to_string(process) + "/cmdline");
    if (std::string word; line >> word && word == "sandbox") return;
  }
  throw std::runtime_error("runs inside scripts/sandbox only");
}

bool RunAll(const Choice& choice) {
  RequireSandbox();
  CloudProcess cloud;
  Device device;
  void* const page = mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) throw std::bad_alloc();
  Told& told = *new (page) Told{};
  const std::string wanted = choice.only.empty() ? choice.scenario : choice.only.substr(0, choice.only.find(':'));
  bool good = true, found = false;
  for (const Scenario& scenario : Scenarios()) {
    if (!wanted.empty() && wanted != scenario.name) continue;
    found = true;
    good = RunScenario(scenario, choice, cloud, device, told) && good;
  }
  if (!found) throw std::runtime_error("no such scenario: " + wanted);
  return good;
}

[[noreturn]] void Usage() {
  std::fputs("usage: varnkivo-faults [--scenario NAME] [--sample N/M] [--only SCENARIO:KIND:POINT[:ERRNO]] [--list]\n",
             stderr);
  std::exit(2);
}

Choice Parse(int count, char** words) {
  const option options[] = {{"scenario", 1, nullptr, 's'},
                            {"sample", 1, nullptr, 'p'},
                            {"only", 1, nullptr, 'o'},
                            {"list", 0, nullptr, 'l'},
                            {}};
  Choice choice;
  for (int name; (name = getopt_long(count, words, "", options, nullptr)) != -1;) {
    if (name == 's')
      choice.scenario = optarg;
    else if (name == 'o')
      choice.only = optarg;
    else if (name == 'l')
      choice.list = true;
    else if (name != 'p' || std::sscanf(optarg, "%zu/%zu", &choice.part, &choice.parts) != 2)
      Usage();
  }
  if (optind != count || choice.part < 1 || choice.part > choice.parts) Usage();
  return choice;
}

}  // namespace
}  // namespace faults

int main(int count, char** words) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  try {
    return faults::RunAll(faults::Parse(count, words)) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "varnkivo-faults: %s\n", error.what());
    return 3;
  }
}
