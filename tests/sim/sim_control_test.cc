// What tests and people change in the cloud while it runs, and how it answers then.
#include "sim/json_text.h"
#include "sim/sim_bench.h"

namespace {

class SimControl : public SimTest {
 protected:
  Exchange Call(const std::string& path, const std::string& body = "-", const char* method = nullptr) {
    return Send({control.Url() + path, body, {}, method});
  }
  Json::Value Answer(const std::string& path, const std::string& body = "-") {
    return kivosim::ParseJson(Call(path, body).body);
  }
  void Change(const std::string& path, const std::string& body) {
    EXPECT_EQ("{\"ok\":true}\n", Call(path, body).body) << path << body;
  }
  kivosim::Control control{cloud, 0, {}};
};

TEST_F(SimControl, CallsChangeWhatASignInIsAnswered) {
  const struct {
    const char *path, *body, *answer;
  } rows[] = {
      {"/register-api-key", R"({"serial":"2130KVN004211","key":"k1"})", "good"},
      {"/forget-api-key", R"({"serial":"2130KVN004211"})", "apikey_not_found"},
      {"/register-api-key", R"({"serial":"2130KVN004211","key":"k1"})", "good"},
      {"/expire-api-key", R"({"serial":"2130KVN004211"})", "apikey_expired"},
      {"/register-api-key", R"({"serial":"2130KVN004211","key":"k1"})", "good"},
      {"/faults", R"({"path":"*","status":200,"body":"{\"code\":\"any\"}","times":2})", "any"},
      {"/faults", R"([{"path":"device/api/password_login","status":200,"body":"{\"code\":\"x\"}","times":2}])", "x"},
      {"/change-account", R"({"user_id":"1001","refusal":"badsys"})", "x"},
      {"/change-account", R"({"user_id":"1001","refusal":"badsys"})", "any"},
      {"/change-account", R"({"user_id":"1001","refusal":"account_unverified"})", "account_unverified"},
      {"/remove-account", R"({"user_id":"1001"})", "account_not_found"},
      {"/refuse-machine", R"({"serial":"2130KVN004211"})", "invalid_machine"}};
  for (const auto& row : rows) {
    Change(row.path, row.body);
    EXPECT_EQ(row.answer, Member(Post(kApi + "password_login", kLogin), "code")) << row.path << row.body;
  }
  EXPECT_EQ(kLogin, Answer("/journal")[0]["request"]["body"].asString());
  EXPECT_EQ(200, Call("/journal", "-", "DELETE").status);
  EXPECT_EQ(0u, Answer("/journal").size());
  for (const char* mistake : {R"({"path":"x","end":"bang"})", R"({"path":"x","statsu":1})"})
    EXPECT_EQ(400, Call("/faults", mistake).status);
  EXPECT_EQ(0u, cloud.PendingFaults());
  Change("/reset", "");
  EXPECT_EQ(0u, cloud.Accounts().size());
}

TEST_F(SimControl, TokensAreIssuedListedWithoutBeingShownExpiredAndRevoked) {
  const auto status = [](const Json::Value& file) { return ExchangeAuthKey(file["access_token"].asString()).status; };
  Change("/token-lifetime", R"({"seconds":7,"client_id":"kivo-device"})");
  const Json::Value file = Answer("/tokens", R"({"user_id":"1001","serial":"S1","age":3})");
  EXPECT_EQ(7, file["expires_in"].asInt());
  EXPECT_EQ(200, status(file));
  Change("/pass-time", R"({"seconds":7})");
  EXPECT_EQ(401, status(file));
  const Json::Value next = Answer("/tokens", R"({"email":"ann@example.com","serial":"S1"})");
  Change("/expire-tokens", R"({"client_id":"kivo-device"})");
  EXPECT_EQ(401, status(next));
  Change("/revoke-tokens", R"({"family":1})");
  const Exchange listing = Call("/tokens");
  const Json::Value families = kivosim::ParseJson(listing.body)["families"];
  ASSERT_EQ(2u, families.size());
  EXPECT_TRUE(families[0]["revoked"].asBool() && !families[1]["revoked"].asBool());
  for (const char* name : {"access_token", "refresh_token", "id_token"})
    EXPECT_EQ(std::string::npos, listing.body.find(next[name].asString()));
}

}  // namespace
