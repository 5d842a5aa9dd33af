// The bench, and the one function of the library that has to fail on its own: nothing outside can make it do so.
#include "account_bench.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>
#include <unistd.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <typeinfo>

#include "fake_state.h"
#include "sim/device_token.h"

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
  unlink(kNotifications);
  kivosim::Account ann{kEmail, kPassword, kUserId};
  ann.authKeys[kSerial] = kAuthKey;
  cloud->AddAccount(ann);
  cloud->GrantAccessToken(kAccessToken, kUserId);
}

void Bench::SignIn(std::int64_t secondsAgo) {
  WriteRecord(Lines(std::string("kivoID=") + kEmail + "|kivoIDSerial=" + kUserId + "|lu_auth_key=" + kAuthKey +
                    "|last_query_time=" + std::to_string(kNow - secondsAgo)));
}

kivosim::TokenSet Bench::StoreTokens(int age) {
  const kivosim::TokenSet set = cloud->IssueTokens(kEmail, "kivo-device", kSerial);
  for (const std::string& token : {set.accessToken, set.idToken, set.refreshToken})
    device.MustNotLog(token.substr(0, 14));
  Json::Value content = ParseJson(set.fileText);
  content["created_at"] = static_cast<Json::Int64>(kNow - age);
  WriteTokenFile(JsonText(content));
  return set;
}

std::unique_ptr<varnkivo::PkceClient> Bench::Client() const {
  auto client = std::make_unique<varnkivo::PkceClient>("lum");
  client->SetPkceConfig(client->FormatPkceConfig(ParseJson(ReadFile(kLoginConfig))));
  return client;
}

void Bench::Answer(const std::string& path, const std::string& body, int status) {
  kivosim::Fault fault = kivosim::Fault::Answer(status, body);
  fault.skipHandler = true;
  cloud->QueueFault(path, fault);
}

std::vector<std::string> Bench::Sent() const {
  std::vector<std::string> out;
  for (const auto& request : cloud.Requests())
    out.push_back(request.method + " " + request.target + " " + request.host + " " + request.body);
  return out;
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

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = {
      {"password", "kivo_account_login", "device/api/password_login", "Failed to login ann@example.com, resp=",
       [](Json::Value& out) { return VARNKIVOAccountLogin(kEmail, kPassword, out, false); }, true},
      {"oauth", "kivo_account_login", "good/user/launch",
       "Failed to login, resp=", [](Json::Value& out) { return VARNKIVOAccountOauthLogin(out, kAccessToken); }, true},
      {"key", "kivo_account_login", kQuery, "",
       [](Json::Value& out) { return VARNKIVOAccountLoginByKey(kUserId, kAuthKey, out); }, true},
      {"query", "kivo_account_query_info", kQuery, "Server returned insufficient data. resp=",
       [](Json::Value& out) { return VARNKIVOAccountQueryInfo(out, true, false); }},
      {"register", "kivo_account_register", "device/api/user/register", "Failed to register ann@example.com, resp=",
       [](auto&) { return VARNKIVOAccountRegister(kEmail, kPassword, "Ann", true, true, false, nullptr); }},
      {"update", "kivo_account_set_info", "device/api/user/update", "Failed to update account:1001, resp=",
       [](auto&) {
         return VARNKIVOAccountSetInfo("Ann", "not@without.password", nullptr, "nor this", nullptr, nullptr, nullptr,
                                       -7, 1, 0, nullptr);
       }},
      {"report", "kivo_report_info", "device/api/report",
       "Failed to query service check, resp=", [](auto&) { return VARNKIVOReportInfo(); }},
      {"history", "kivo_account_purchase_list", "api/query.php", "Failed to query purchase info, resp=",
       [](Json::Value& out) {
         const Json::Value all;
         return VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, all, all, all, all, out);
       }},
      {"page", "kivo_get_iframe_info", "", "", [](Json::Value& out) { return VARNKIVOGetIframeInfo(out); }}};
  return operations;
}

std::vector<Operation> Named(const std::string& names) {
  std::vector<Operation> found;
  for (const Operation& operation : Operations())
    if (names.find(operation.name) != std::string::npos) found.push_back(operation);
  return found;
}

std::string DeviceFields(const std::string& id, const std::string& password) {
  return "lu_sn=2040VKN000001&lu_token=" + kivosim::DeviceToken(kSerial, id, password);
}

std::vector<std::string> TokenFiles() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kPrivateFolder)) {
    const std::string name = entry.path().filename();
    if (name.find("token.json") != std::string::npos) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Notification() {
  const std::string text = ReadFile(kNotifications);
  if (text.empty()) return "";
  const Json::Value sent = ParseJson(text);
  return sent["tag"].asString() + " " + JsonText(sent["params"]);
}

std::string AsUser(uid_t uid, gid_t gid, id_t saved, const std::function<std::string()>& work) {
  return InChild([&] {
    const bool lowered = setresgid(gid, gid, saved) == 0 && setresuid(uid, uid, saved) == 0;
    return lowered ? work() : "ids not lowered";
  });
}

std::string Transcript(const FakePlatform& device) {
  std::ostringstream out;
  for (const LogLine& line : device.Lines())
    out << line.priority << ' ' << line.source << ':' << line.line << ' ' << line.text << '\n';
  return out.str();
}

std::string Result(const std::function<std::string()>& call) {
  try {
    return call();
  } catch (const varnkivo::KivoException& error) {
    const std::string what = error.what();
    return "code " + std::to_string(error.GetCode()) + ": " + what.substr(0, what.find(" [code="));
  } catch (const std::bad_cast&) {
    return "bad_cast";
  }
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
