// The state behind the fakes, and the device's files in their first state.
#include "fake_platform.h"

#include <gtest/gtest.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "fake_state.h"

namespace testsupport {
namespace {

namespace fs = std::filesystem;

struct Range {
  std::uintptr_t begin = 0, end = 0;
};

/// Where the library's code lies: libvarnkivo, or the program (which comes first in the list) where it is not loaded.
Range FindLibrary() {
  Range found;
  dl_iterate_phdr(
      [](dl_phdr_info* object, std::size_t, void* out) {
        auto& range = *static_cast<Range*>(out);
        if (range.end != 0 && !std::strstr(object->dlpi_name, "/libvarnkivo.so")) return 0;
        for (int i = 0; i < object->dlpi_phnum; ++i) {
          const auto& segment = object->dlpi_phdr[i];
          if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X)) continue;
          range.begin = object->dlpi_addr + segment.p_vaddr;
          range.end = range.begin + segment.p_memsz;
        }
        return 0;
      },
      &found);
  return found;
}

const Range gLibrary = FindLibrary();

void EmptyFolder(const fs::path& folder) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) fs::remove_all(entry.path(), ignored);
}

void ResetFiles() {
  for (const char* folder : {kPrivateFolder, "/usr/varn/lib/plugins", "/usr/varn/var/log", "/etc/cron.d"})
    EmptyFolder(folder);
  if (chmod(kPrivateFolder, 0700) != 0 || chown(kPrivateFolder, 934, 934) != 0) ADD_FAILURE() << kPrivateFolder;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/tmp"))
    if (entry.path().filename().string().rfind("account_", 0) == 0) fs::remove_all(entry.path(), ignored);
  FakePlatform::Write(kDeviceConf, "language=\"enu\"\n");
  FakePlatform::Write(kDefaultsConf, "product=\"VK-2040\"\n");
  FakePlatform::Write("/usr/varn/etc/host.conf",
                      "serial=\"2040VKN000001\"\noriginal_serial=\"2040VKN000001\"\nmac=\"02:00:5e:20:40:01\"\n"
                      "product_version=\"VK-2040 1.0-100\"\n");
}

}  // namespace

thread_local bool gFakeError = false;

FakeState& State() {
  static auto* const state = new FakeState;  // outlives whatever logs at exit
  return *state;
}

bool InLibrary(const void* address) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  return at >= gLibrary.begin && at < gLibrary.end;
}

Planned Plan(const std::string& name, const std::string& arguments) {
  FakeState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.calls.push_back(name + "(" + arguments + ")");
  const auto found = state.results.find(name);
  if (found == state.results.end() || found->second.empty()) return {};
  constexpr long kDefault = INT64_MIN;
  const std::optional<long> next = found->second.front();
  found->second.pop_front();
  if (!next) return {};
  return {true, *next == kDefault ? std::nullopt : next};
}

void CountOpen(const char* kind, int change) {
  FakeState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.open[kind] += change;
}

void Capture(int priority, const char* line) {
  const std::string all = line;
  const std::size_t space = all.find(' '), colon = all.rfind(':', space);
  LogLine parsed{priority, "", all};
  if (space != std::string::npos && colon != std::string::npos && colon + 1 < space &&
      all.find_first_not_of("0123456789", colon + 1) == space)
    parsed = {priority, all.substr(0, colon), all.substr(space + 1), std::stoi(all.substr(colon + 1))};
  else
    ADD_FAILURE() << "a log line without \"SOURCE:LINE \" in front: " << all;
  FakeState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.lines.push_back(parsed);
}

FakePlatform::FakePlatform() {
  FakeState& state = State();
  {
    const std::lock_guard<std::mutex> guard(state.mutex);
    state.results.clear();
    state.open.clear();
    state.calls.clear();
    state.lines.clear();
    state.secrets.clear();
    state.time.reset();
    state.divisor = 1;
  }
  gFakeError = false;
  ResetFiles();
  VARNKIVOErrSet(KIVO_ERR_SUCCESS);
}

FakePlatform::~FakePlatform() {
  for (const auto& [kind, count] : State().open) EXPECT_EQ(0, count) << kind << ": opened and not closed";
  for (const auto& [call, queue] : State().results)
    EXPECT_TRUE(queue.empty()) << call << ": was to fail " << queue.size() << " more times";
  for (const LogLine& line : State().lines)
    for (const std::string& secret : State().secrets)
      EXPECT_EQ(std::string::npos, (line.source + line.text).find(secret)) << "a secret in the log: " << line.text;
}

void FakePlatform::FailNext(const std::string& call, int times, std::optional<long> result) {
  const std::lock_guard<std::mutex> guard(State().mutex);
  for (int i = 0; i < times; ++i) State().results[call].push_back(result.value_or(INT64_MIN));
}

void FakePlatform::FailAfter(const std::string& call, int before, std::optional<long> result) {
  {
    const std::lock_guard<std::mutex> guard(State().mutex);
    for (int i = 0; i < before; ++i) State().results[call].push_back(std::nullopt);
  }
  FailNext(call, 1, result);
}

void FakePlatform::StopFailing() {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().results.clear();
}

std::vector<std::string> FakePlatform::Calls(const std::string& start) const {
  const std::lock_guard<std::mutex> guard(State().mutex);
  std::vector<std::string> found;
  for (const std::string& call : State().calls)
    if (call.rfind(start, 0) == 0) found.push_back(call);
  return found;
}

void FakePlatform::ForgetCalls() {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().calls.clear();
}

std::vector<LogLine> FakePlatform::Lines() const {
  const std::lock_guard<std::mutex> guard(State().mutex);
  return State().lines;
}

std::vector<std::string> FakePlatform::Logs() const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) texts.push_back(line.text);
  return texts;
}

std::string FakePlatform::LastLog() const {
  const auto lines = Lines();
  return lines.empty() ? "" : lines.back().text;
}

std::string FakePlatform::LastLogSource() const {
  const auto lines = Lines();
  return lines.empty() ? "" : lines.back().source;
}

bool FakePlatform::HasLog(const std::string& part) const {
  for (const LogLine& line : Lines())
    if (line.text.find(part) != std::string::npos) return true;
  return false;
}

void FakePlatform::ForgetLogs() {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().lines.clear();
}

void FakePlatform::MustNotLog(const std::string& secret) {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().secrets.push_back(secret);
}

void FakePlatform::SetTime(std::time_t now) {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().time = now;
}

void FakePlatform::ShortenTimeOuts(long divisor) {
  const std::lock_guard<std::mutex> guard(State().mutex);
  State().divisor = divisor;
}

std::string FakePlatform::Read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void FakePlatform::Write(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) ADD_FAILURE() << path << " could not be written";
}

}  // namespace testsupport
