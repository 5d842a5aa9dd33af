// The state behind the fakes, and the device's files in their first state.
#include "fake_platform.h"

#include <gtest/gtest.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "fake_state.h"

namespace testsupport {
namespace {

namespace fs = std::filesystem;

void ResetFiles() {
  std::error_code ignored;
  for (const char* folder : {kPrivateFolder, "/usr/varn/lib/plugins", "/usr/varn/var/log", "/etc/cron.d"})
    for (const auto& entry : fs::directory_iterator(folder, ignored)) fs::remove_all(entry.path(), ignored);
  for (const auto& entry : fs::directory_iterator("/tmp"))
    if (entry.path().filename().string().rfind("account_", 0) == 0) fs::remove_all(entry.path(), ignored);
  if (chmod(kPrivateFolder, 0700) != 0 || chown(kPrivateFolder, 934, 934) != 0) ADD_FAILURE() << kPrivateFolder;
  WriteFile(kDeviceConf, "language=\"enu\"\n");
  WriteFile(kDefaultsConf, "product=\"VK-2040\"\n");
  WriteFile("/usr/varn/etc/host.conf",
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
  dl_find_object found;
  return _dl_find_object(const_cast<void*>(address), &found) == 0 &&
         std::strstr(found.dlfo_link_map->l_name, "/libvarnkivo.so");
}

Planned Plan(const std::string& name, const std::string& arguments) {
  return Locked([&](FakeState& state) -> Planned {
    state.calls.push_back(name + "(" + arguments + ")");
    auto& queue = state.results[name];
    if (queue.empty()) return {};
    const std::optional<long> next = queue.front();
    queue.pop_front();
    if (!next) return {};
    return {true, *next == kDefaultResult ? std::nullopt : next};
  });
}

FakePlatform::FakePlatform() {
  Locked([](FakeState& state) { static_cast<FakeTest&>(state) = {}; });
  gFakeError = false;
  ResetFiles();
  VARNKIVOErrSet(KIVO_ERR_SUCCESS);
}

FakePlatform::~FakePlatform() {
  for (const auto& [call, queue] : State().results)
    EXPECT_TRUE(queue.empty()) << call << ": was to fail " << queue.size() << " more times";
  for (const LogLine& line : State().lines)
    for (const std::string& secret : State().secrets)
      EXPECT_EQ(std::string::npos, (line.source + line.text).find(secret)) << "a secret in the log: " << line.text;
}

void FakePlatform::FailNext(const std::string& call, int times, std::optional<long> result) {
  Locked([&](FakeState& state) {
    for (int i = 0; i < times; ++i) state.results[call].push_back(result.value_or(kDefaultResult));
  });
}

void FakePlatform::FailAfter(const std::string& call, int before, std::optional<long> result) {
  Locked([&](FakeState& state) {
    for (int i = 0; i < before; ++i) state.results[call].push_back(std::nullopt);
  });
  FailNext(call, 1, result);
}

std::vector<std::string> FakePlatform::Calls(const std::string& start) const {
  return Locked([&](FakeState& state) {
    std::vector<std::string> found;
    for (const std::string& call : state.calls)
      if (call.rfind(start, 0) == 0) found.push_back(call);
    return found;
  });
}

void FakePlatform::ForgetCalls() {
  Locked([](FakeState& state) { state.calls.clear(); });
}

std::vector<LogLine> FakePlatform::Lines() const {
  return Locked([](FakeState& state) { return state.lines; });
}

std::vector<std::string> FakePlatform::Logs() const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) texts.push_back(line.text);
  return texts;
}

LogLine FakePlatform::Last() const {
  const auto lines = Lines();
  return lines.empty() ? LogLine{} : lines.back();
}

bool FakePlatform::HasLog(const std::string& part) const {
  const auto lines = Lines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const LogLine& line) { return line.text.find(part) != std::string::npos; });
}

void FakePlatform::MustNotLog(const std::string& secret) {
  Locked([&](FakeState& state) { state.secrets.push_back(secret); });
}

void FakePlatform::SetTime(std::time_t now) {
  Locked([&](FakeState& state) { state.time = now; });
}

void FakePlatform::ShortenTimeOuts(long divisor) {
  Locked([&](FakeState& state) { state.divisor = divisor; });
}

}  // namespace testsupport
