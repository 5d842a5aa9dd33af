// Starts varnkivo-sim, reads its ready line, and writes the bundle between runs. The bundle belongs to the sandbox.
#include "cloud.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <json/json.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>

#include "programs/request.h"

namespace bench {
namespace {

constexpr const char *kAccounts = "/tmp/varnkivo-bench-accounts.json", *kBundle = "/etc/ssl/certs/ca-certificates.crt";

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file || text.empty()) throw std::runtime_error("cannot read " + path);
  return text;
}

void WriteText(const char* path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file.flush()) throw std::runtime_error(std::string("cannot write ") + path);
}

std::size_t Collect(char* data, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &errors))
    throw std::runtime_error("the simulator says: " + text);
  return value;
}

/// The account that the request of the benchmarks is about, in the simulator's format.
std::string Accounts() {
  Json::Value account;
  account["email"] = "ann@example.com";
  account["password"] = "correct horse";
  account["user_id"] = kUserId;
  account["auth_keys"][kSerial] = kAuthKey;
  Json::Value accounts;
  accounts.append(account);
  return Json::writeString(Json::StreamWriterBuilder(), accounts);
}

}  // namespace

Cloud::Cloud() {
  WriteText(kAccounts, Accounts());
  int output[2];
  if (pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  std::string program = BENCH_SIMULATOR, trust = "--trust-into", accounts = std::string("--accounts=") + kAccounts,
              port = "--control-port=0";
  char* argv[] = {program.data(), trust.data(), accounts.data(), port.data(), nullptr};
  const int failed = posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  if (failed) throw std::runtime_error("cannot start " + program);
  AwaitReady(output[0]);
}

void Cloud::AwaitReady(int output) {
  FILE* stream = fdopen(output, "r");
  char line[4096] = {};
  const bool got = stream && std::fgets(line, sizeof line, stream);
  if (stream) std::fclose(stream);
  if (!got) throw std::runtime_error("the simulator did not start");
  const Json::Value ready = Parse(line);
  control_ = ready["control"].asString();
  ownCa_ = ReadText(ready["ca"].asString());
  fullBundle_ = ReadText(kBundle);
}

Cloud::~Cloud() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

void Cloud::TrustAll() const { WriteText(kBundle, fullBundle_); }
void Cloud::TrustOnlyOwnCa() const { WriteText(kBundle, ownCa_); }

int Cloud::Certificates() const {
  const std::string mark = "-----BEGIN CERTIFICATE-----";
  int count = 0;
  for (std::size_t at = fullBundle_.find(mark); at != std::string::npos; at = fullBundle_.find(mark, at + 1)) ++count;
  return count;
}

/// `body` may be null.
std::string Cloud::Control(const std::string& call, const char* body, const char* method) const {
  CURL* curl = curl_easy_init();
  std::string answer;
  curl_easy_setopt(curl, CURLOPT_URL, (control_ + call).c_str());
  if (body) curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body);
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  if (result != CURLE_OK || status != 200) throw std::runtime_error("the simulator refused " + call + ": " + answer);
  return answer;
}

std::string Cloud::IssueTokens(int age) const {
  Json::Value call;
  call["user_id"] = kUserId;
  call["client_id"] = kClientId;
  call["serial"] = kSerial;
  call["age"] = age;
  return Control("/tokens", Json::writeString(Json::StreamWriterBuilder(), call).c_str(), "POST");
}

void Cloud::SetTokenLifetime(int seconds) const {
  Control("/token-lifetime", ("{\"seconds\":" + std::to_string(seconds) + "}").c_str(), "POST");
}

void Cloud::ClearJournal() const { Control("/journal", nullptr, "DELETE"); }

int Cloud::Connections() const {
  std::set<std::uint64_t> numbers;
  for (const Json::Value& entry : Parse(Control("/journal", nullptr, "GET")))
    numbers.insert(entry["connection"].asUInt64());
  return static_cast<int>(numbers.size());
}

}  // namespace bench
