// The bench, and the one function of the library that has to fail on its own: nothing outside can make it do so.
#include "account_bench.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "fake_state.h"

using namespace testsupport;

extern "C" int VARNKIVOServerConfigGet(char* config) {
  if (Plan("VARNKIVOServerConfigGet", "").instead) {
    VARNKIVOErrSet(KIVO_ERR_SYSTEM);
    return -1;
  }
  return Next<int(char*)>("VARNKIVOServerConfigGet")(config);
}

namespace accounttest {

Bench::Bench() {
  device.SetTime(kNow);
  for (const char* secret : {kPassword, kAuthKey, kApiKey, kAccessToken}) device.MustNotLog(secret);
  WriteFile(kApiKeyFile, std::string(kApiKey) + "\n");
  kivosim::Account ann{kEmail, kPassword, kUserId};
  ann.authKeys[kSerial] = kAuthKey;
  cloud->AddAccount(ann);
  cloud->GrantAccessToken(kAccessToken, kUserId);
}

void Bench::SignIn(std::int64_t secondsAgo) {
  WriteRecord(Lines(std::string("kivoID=") + kEmail + "|kivoIDSerial=" + kUserId + "|lu_auth_key=" + kAuthKey +
                    "|last_query_time=" + std::to_string(kNow - secondsAgo)));
}

std::vector<std::string> Bench::Steps(const std::vector<std::string>& names) const {
  std::vector<std::string> steps;
  const std::string writer = "VLIBCFileSetKeyValue(" + std::string(kRecord) + ",";
  for (const std::string& call : device.Calls()) {
    std::string step = call.substr(0, call.find('('));
    const std::size_t key = writer.size();
    if (call.rfind(writer, 0) == 0) step = "set " + call.substr(key, call.find(',', key) - key);
    const auto begins = [&](const std::string& name) { return step.rfind(name, 0) == 0; };
    if (std::any_of(names.begin(), names.end(), begins)) steps.push_back(step);
  }
  return steps;
}

std::string AsUser(uid_t uid, gid_t gid, id_t saved, const std::function<std::string()>& work) {
  return InChild([&] {
    const bool lowered = setresgid(gid, gid, saved) == 0 && setresuid(uid, uid, saved) == 0;
    return lowered ? work() : "ids not lowered";
  });
}

std::string Transcript(const FakePlatform& device, std::size_t first) {
  std::ostringstream out;
  const auto lines = device.Lines();
  for (std::size_t i = first; i < lines.size(); ++i)
    out << lines[i].priority << ' ' << lines[i].source << ':' << lines[i].line << ' ' << lines[i].text << '\n';
  return out.str();
}

Json::Value ParseJson(const std::string& text) {
  Json::Value value;
  std::string errors;
  std::istringstream in(text);
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &errors)) << errors;
  return value;
}

std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

std::string Lines(const std::string& pairs, std::size_t count) {
  std::string out, pair;
  for (std::istringstream in(pairs); count > 0 && std::getline(in, pair, '|'); --count)
    out += pair.replace(pair.find('='), 1, "=\"") + "\"\n";
  return out;
}

}  // namespace accounttest
