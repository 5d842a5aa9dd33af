// varnkivo-faults [--scenario NAME] [--sample N/M] [--only SCENARIO:KIND:POINT[:ERRNO]]
//
// Runs each operation once without a fault, and then with a fault at every place: killed before each system call and
// after those that change a file; each call that can fail failing with each error it knows; each allocation of the
// library failing. --sample tries the N-th of M parts, each spread over all places.
// --only repeats one, and shows what was logged. Ends with 1 when anything was left broken. Only inside the sandbox.
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "allocations.h"
#include "checker.h"
#include "sim/digest.h"

extern "C" unsigned int sleep(unsigned int) { return 0; }  // the library's pauses before another attempt

namespace faults {
namespace {

struct Choice {
  std::string scenario, only;
  std::size_t part = 1, parts = 1;
};

/// Work: "yes" while the cloud knows the device's auth key.
std::string KnowsDevice(kivosim::Simulator& cloud, const std::string&) {
  return cloud.FindAccount(kEmail)->authKeys.count(kSerial) != 0 ? "yes" : "no";
}

/// Work: "yes" when the set's refresh token is the present one of a family that is not revoked: the set is good.
std::string IsPresent(kivosim::Simulator& cloud, const std::string& tokenFile) {
  const std::vector<std::string> tokens = TokensIn(tokenFile);
  for (const kivosim::TokenFamily& family : cloud.TokenFamilies())
    if (!tokens.empty() && family.refreshHash == kivosim::HashPrefix(tokens.back()) && !family.revoked) return "yes";
  return "no";
}

class Campaign {
 public:
  Campaign(const Scenario& scenario, Told& told) : scenario_(scenario), told_(told) {}

  /// The run without a fault: collects what is allowed, and every fault that could be put in.
  std::vector<Injection> Count() {
    std::vector<Injection> all;
    const auto watch = [&](const Point& point, std::uint64_t second, bool done) {
      const Call call = FactsOf(point.call, second);
      if (!done) {
        all.push_back({Kind::kKill, point});
        for (const int error : call.errors) all.push_back({Kind::kFail, point, error});
        return;
      }
      if (call.changesFile) all.push_back({Kind::kKillAfter, point});
      // A record that is written in place has no state that may be seen.
      if (call.name.rfind("rename", 0) == 0 || call.name.rfind("unlink", 0) == 0) NoteRecord();
    };
    Reset();
    NoteRecord();
    const Ending ending = RunAs(scenario_.uid, scenario_.run, {}, watch);
    NoteRecord();
    const State now = LookAtDevice();
    const bool changed = scenario_.tokens == Tokens::kReplaced
                             ? TokensAreGood(now)
                             : reference_.records.size() >= 2 || scenario_.recordStays;
    if (!told_.finished || told_.result < 0 || !changed)
      throw std::runtime_error(std::string(scenario_.name) + " does not work without a fault:\n" + Log());
    reference_.result = told_.result;
    reference_.descriptors = ending.descriptors;
    reference_.job = Content(scenario_.tokens == Tokens::kRemoved ? before_ : now, std::string(kCron) + "kivo");
    for (int i = 1; i <= AllocationCount(); ++i) all.push_back({Kind::kMemory, {}, 0, i});
    return all;
  }

  void Try(const Injection& injection, bool talk) {
    talk_ = talk;
    Reset();
    Checker checker(scenario_, reference_, before_);
    Outcome outcome = {injection, RunAs(scenario_.uid, scenario_.run, injection), told_, ""};
    const bool reached =
        outcome.ending.reached || (injection.kind == Kind::kMemory && AllocationCount() >= injection.allocation);
    if (talk) std::printf("result %d, finished %d, log:\n%s", told_.result, told_.finished, Log().c_str());
    if (scenario_.tokens != Tokens::kNone) outcome.log = Log();
    checker.CheckFault(LookAtDevice(), outcome);
    UseLine(lines_.back());
    const bool forgotten = scenario_.again && InCloud(&KnowsDevice) != "yes";
    RunAs(scenario_.uid, forgotten ? scenario_.again : scenario_.run);
    const State now = LookAtDevice();
    checker.CheckRepetition(now, told_, TokensAreGood(now));
    checker.CheckLog(Log(), now, lines_);
    if (scenario_.tokens == Tokens::kReplaced && checker.LeavesRoom(now)) {
      RunAs(0, &LogoutLocally);
      checker.CheckSignedOut(LookAtDevice(), told_);
    }
    Count(injection, reached, checker);
  }

  /// Whether nothing was broken.
  bool Print() const {
    std::printf("%-14s killed %d, failed %d, memory %d (not reached: %d): broken %d\n", scenario_.name, killed_,
                failed_, memory_, notReached_, broken_);
    return broken_ == 0;
  }

 private:
  void Reset() {
    ResetDevice(scenario_.record);
    InCloud(&ResetCloud);
    lines_ = {""};
    if (scenario_.prepare) {
      std::istringstream text(InCloud(scenario_.prepare));
      for (std::string line; std::getline(text, line);) lines_.push_back(line);
    }
    UseLine(lines_[lines_.size() > 1 ? 1 : 0]);
    before_ = LookAtDevice();
  }

  static std::string Content(const State& state, const std::string& path) {
    const auto found = state.files.find(path);
    return found == state.files.end() ? "" : found->second.content;
  }

  bool TokensAreGood(const State& now) const {
    if (scenario_.tokens != Tokens::kReplaced) return true;
    return InCloud(&IsPresent, Content(now, std::string(kPrivate) + "lum_token.json")) == "yes";
  }

  void NoteRecord() {
    const auto record = LookAtDevice().record;
    if (reference_.records.empty() || reference_.records.back() != record) reference_.records.push_back(record);
  }

  Ending RunAs(uid_t uid, int (*run)(), const Injection& injection = {}, const Watch& watch = nullptr) {
    told_ = {};
    FailAllocation(injection.allocation);
    return RunTraced([=] { Work(uid, run); }, injection, watch);
  }

  /// In the child. Its own words (of the runtime, on the way to an abort) are for nobody.
  void Work(uid_t uid, int (*run)()) {
    const pid_t self = getpid();
    if (!talk_ && !std::freopen("/dev/null", "w", stderr)) _exit(98);
    if (uid != 0 && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, 0) != 0 || setresuid(uid, uid, 0) != 0))
      _exit(99);
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
    ++(kind == Kind::kMemory ? memory_ : kind == Kind::kFail ? failed_ : killed_);
    notReached_ += !reached;
    broken_ += !checker.Complaints().empty();
    for (std::string complaint : checker.Complaints()) {
      std::replace(complaint.begin(), complaint.end(), '\n', ' ');
      std::printf("broken: --only %s:%s: %s\n", scenario_.name, Text(injection).c_str(), complaint.c_str());
    }
  }

  const Scenario& scenario_;
  Told& told_;
  Reference reference_;
  State before_;
  std::vector<std::string> lines_;  // for UseLine; the first is empty
  int killed_ = 0, failed_ = 0, memory_ = 0, notReached_ = 0, broken_ = 0;
  bool talk_ = false;
};

/// Which part a fault belongs to: by its name, as the number of polls, and with it an index, differs from run to run.
std::size_t PartOf(const std::string& name, std::size_t parts) { return std::hash<std::string>()(name) % parts + 1; }

/// Whether nothing was broken.
bool RunScenario(const Scenario& scenario, const Choice& choice, Told& told) {
  Campaign campaign(scenario, told);
  bool found = choice.only.empty();
  for (const Injection& injection : campaign.Count()) {
    const std::string name = std::string(scenario.name) + ":" + Text(injection);
    const bool isOnly = name == choice.only;
    if (choice.only.empty() ? PartOf(name, choice.parts) != choice.part : !isOnly) continue;
    found = true;
    campaign.Try(injection, isOnly);
  }
  if (!found) throw std::runtime_error("no such fault: " + choice.only);
  return campaign.Print();
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
  StartCloud();
  PrepareDevice();
  Told& told = NewShared<Told>();
  const std::string wanted = choice.only.empty() ? choice.scenario : choice.only.substr(0, choice.only.find(':'));
  bool good = true, found = false;
  for (const Scenario& scenario : Scenarios()) {
    if (!wanted.empty() && wanted != scenario.name) continue;
    found = true;
    good = RunScenario(scenario, choice, told) && good;
  }
  if (!found) throw std::runtime_error("no such scenario: " + wanted);
  return good;
}

Choice Parse(int count, char** words) {
  Choice choice;
  for (int i = 1; i < count; i += 2) {
    const std::string name = words[i], value = i + 1 < count ? words[i + 1] : "";
    if (name == "--scenario" && !value.empty())
      choice.scenario = value;
    else if (name == "--only" && !value.empty())
      choice.only = value;
    else if (name != "--sample" || std::sscanf(value.c_str(), "%zu/%zu", &choice.part, &choice.parts) != 2 ||
             choice.part < 1 || choice.part > choice.parts)
      throw std::runtime_error("[--scenario NAME] [--sample N/M] [--only SCENARIO:KIND:POINT[:ERRNO]]");
  }
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
