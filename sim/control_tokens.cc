// The control calls about clients, packages, tokens and outages. Listings never hold a whole token; only the call that
// issues a set of tokens gives one out.
#include "sim/control_call.h"
#include "sim/fault_json.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

std::string TakeOptional(JsonMembers& members, const std::string& name, const std::string& otherwise = "") {
  std::string text = otherwise;
  members.Take(name, text);
  return text;
}

std::vector<std::string> TakeTexts(JsonMembers& members, const std::string& name) {
  const Json::Value list = members.TakeAny(name);
  if (!list.isNull() && !list.isArray()) throw std::runtime_error("\"" + name + "\" must be a list");
  std::vector<std::string> texts;
  for (const Json::Value& text : list) {
    if (!text.isString()) throw std::runtime_error("\"" + name + "\" must be a list of texts");
    texts.push_back(text.asString());
  }
  return texts;
}

std::chrono::seconds TakeSeconds(JsonMembers& members, const std::string& name) {
  int seconds = 0;
  members.Take(name, seconds);
  return std::chrono::seconds(seconds);
}

Json::Value FamilyToJson(const TokenFamily& family) {
  Json::Value json;
  json["family"] = Json::UInt64{family.number};
  json["user_id"] = family.userId;
  json["client_id"] = family.clientId;
  json["serial"] = family.serial;
  json["scope"] = family.scope;
  json["generation"] = Json::UInt64{family.generation};
  json["revoked"] = family.revoked;
  json["refresh_hash"] = family.refreshHash;
  return json;
}

Json::Value GetTokens(const Call& call) {
  Json::Value json;
  json["families"] = Json::Value(Json::arrayValue);
  for (const TokenFamily& family : call.simulator.TokenFamilies()) json["families"].append(FamilyToJson(family));
  json["requests"] = Json::Value(Json::objectValue);
  for (const auto& [type, count] : call.simulator.TokenRequests()) {
    json["requests"][type]["requests"] = Json::UInt64{count.requests};
    json["requests"][type]["granted"] = Json::UInt64{count.granted};
  }
  return json;
}

Json::Value PostTokens(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string account = TakeAccount(members);
  const std::string client = TakeOptional(members, "client_id", "kivo-device"),
                    serial = TakeOptional(members, "serial");
  const std::chrono::seconds age = TakeSeconds(members, "age");
  members.End();
  return ParseJson(call.simulator.IssueTokens(account, client, serial, age).fileText);
}

Json::Value PostExpireTokens(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string client = TakeOptional(members, "client_id");
  members.End();
  call.simulator.ExpireAccessTokens(client);
  return Done();
}

Json::Value RevokeFamily(Simulator& simulator, JsonMembers& members) {
  std::uint64_t number = 0;
  members.Take("family", number);
  members.End();
  if (!simulator.RevokeFamily(number)) throw std::runtime_error("no such family, or revoked already");
  return Done();
}

Json::Value PostRevokeTokens(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  if (members.Has("family")) return RevokeFamily(call.simulator, members);
  const std::string account = TakeAccount(members), client = TakeOptional(members, "client_id");
  members.End();
  if (!call.simulator.RevokeTokens(account, client)) throw std::runtime_error("no such account");
  return Done();
}

Json::Value PostTokenLifetime(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  members.Require("seconds");
  const std::chrono::seconds lifetime = TakeSeconds(members, "seconds");
  const std::string client = TakeOptional(members, "client_id");
  members.End();
  call.simulator.SetTokenLifetime(lifetime, client);
  return Done();
}

Json::Value PostPassTime(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  members.Require("seconds");
  const std::chrono::seconds time = TakeSeconds(members, "seconds");
  members.End();
  call.simulator.PassTime(time);
  return Done();
}

Json::Value PostClients(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  OAuthClient client{TakeText(members, "client_id"), TakeTexts(members, "redirect_uris"),
                     TakeTexts(members, "logout_redirect_uris")};
  members.End();
  call.simulator.AddOAuthClient(std::move(client));
  return Done();
}

Json::Value GetPackages(const Call& call) {
  Json::Value list(Json::arrayValue);
  for (const OAuthClient& client : call.simulator.Packages()) {
    Json::Value& json = list.append(Json::Value());
    json["package"] = client.package;
    json["client_id"] = client.id;
  }
  return list;
}

std::string OnlyPackage(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string name = TakeText(members, "package");
  members.End();
  return name;
}

Json::Value PostPackages(const Call& call) {
  call.simulator.AddPackage(OnlyPackage(call));
  return Done();
}

Json::Value PostRemovePackage(const Call& call) {
  if (!call.simulator.RemovePackage(OnlyPackage(call))) throw std::runtime_error("no such package");
  return Done();
}

Json::Value PostTakeDown(const Call& call) {
  TakeDownFromJson(call.simulator, ParseJson(call.request.body));
  return Done();
}

Json::Value PostBringBack(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string what = TakeOptional(members, "what");
  members.End();
  call.simulator.BringBack(what);
  return Done();
}

}  // namespace

const std::vector<ControlCall>& TokenCalls() {
  static const std::vector<ControlCall> calls = {{"GET", "/tokens", GetTokens},
                                                 {"POST", "/tokens", PostTokens},
                                                 {"POST", "/expire-tokens", PostExpireTokens},
                                                 {"POST", "/revoke-tokens", PostRevokeTokens},
                                                 {"POST", "/token-lifetime", PostTokenLifetime},
                                                 {"POST", "/pass-time", PostPassTime},
                                                 {"POST", "/clients", PostClients},
                                                 {"GET", "/packages", GetPackages},
                                                 {"POST", "/packages", PostPackages},
                                                 {"POST", "/remove-package", PostRemovePackage},
                                                 {"POST", "/take-down", PostTakeDown},
                                                 {"POST", "/bring-back", PostBringBack}};
  return calls;
}

}  // namespace kivosim
