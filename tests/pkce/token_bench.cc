#include "token_bench.h"

#include <gtest/gtest.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <typeinfo>

namespace tokentest {

kivosim::TokenSet TokenBench::StoreTokens(int age) {
  const kivosim::TokenSet set = cloud->IssueTokens(kEmail, "kivo-device", kSerial);
  for (const std::string& token : {set.accessToken, set.idToken, set.refreshToken})
    device.MustNotLog(token.substr(0, 14));
  Json::Value content = ParseJson(set.fileText);
  content["created_at"] = static_cast<Json::Int64>(kNow - age);
  WriteTokenFile(JsonText(content));
  return set;
}

std::unique_ptr<varnkivo::PkceClient> TokenBench::Client() const {
  auto client = std::make_unique<varnkivo::PkceClient>("lum");
  client->SetPkceConfig(Config());
  return client;
}

Json::Value Config() { return varnkivo::PkceClient("any").FormatPkceConfig(ParseJson(ReadFile(kLoginConfig))); }

std::vector<std::string> TokenFiles() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kPrivateFolder)) {
    const std::string name = entry.path().filename();
    if (name.find("token.json") != std::string::npos) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Sent(const Cloud& cloud) {
  std::vector<std::string> out;
  for (const kivosim::Request& request : cloud.Requests()) {
    std::string line = request.method + " " + request.target + " " + request.host;
    for (const std::string& pair : Texts(request.form)) line += " " + pair;
    out.push_back(line);
  }
  return out;
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

}  // namespace tokentest
