// What the account host answers, and that it lets no malformed request pass: bytes are sent with a plain client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/curl_client.h"
#include "sim/simulator.h"

namespace {

using kivosim::Account;
using kivosim::Simulator;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kHost = "https://account.kivo.example";
const std::string kLoginUrl = kHost + "/device/api/password_login";
const std::string kLogin =
    "lu_sn=2130KVN004211&lu_token=430450fef2cf32aad9ad39f451c755a5"
    "&type=acnt_pw_apikey&email=ann%40example.com&passwd=correct%20horse"
    "&serial_no=2130KVN004211&api_key=k1&mac=02%3A00%3A5e%3A00%3A00%3A01";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << from;
  return text.replace(at, from.size(), to);
}

class SimRequests : public testing::Test {
 protected:
  void SetUp() override {
    Account ann{"ann@example.com", "correct horse", "1001"};
    ann.authKeys["2130KVN004211"] = "ak-1";
    cloud.AddAccount(ann);
    cloud.Start();
  }
  /// The code of the answer, which must come with the status that belongs to it.
  std::string Code(const std::string& body) {
    const Exchange exchange = Post(kLoginUrl, body);
    const bool good = exchange.body.find("\"code\":\"good\"") != std::string::npos;
    EXPECT_EQ(good ? 200 : 400, exchange.status) << exchange.body;
    const std::size_t start = exchange.body.find("\"code\":\"") + 8;
    return exchange.body.substr(start, exchange.body.find('"', start) - start);
  }
  Simulator cloud;
};

TEST_F(SimRequests, PasswordLoginGivesIdAndKeyAndIsJournalledByteForByte) {
  const Exchange exchange = Post(kLoginUrl, kLogin, {{"X-Test: a  b", "User-Agent:", "Accept:"}});
  EXPECT_EQ("{\"auth_key\":\"ak-1\",\"code\":\"good\",\"email\":\"ann@example.com\",\"id\":\"1001\"}", exchange.body);
  EXPECT_EQ("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 71\r\n\r\n", exchange.head);
  const auto journal = cloud.Journal();
  ASSERT_EQ(1u, journal.size());
  EXPECT_EQ(
      "POST /device/api/password_login HTTP/1.1\r\nHost: account.kivo.example\r\nX-Test: a  b\r\n"
      "Content-Length: " +
          std::to_string(kLogin.size()) + "\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n" + kLogin,
      journal[0].request.raw);
  EXPECT_EQ("account.kivo.example", journal[0].sni);
}

TEST_F(SimRequests, AFaultyRequestIsRefusedAndComplainedOf) {
  const struct {
    std::string from, to;
    const char* complaint;
  } rows[] = {
      {"type=acnt_pw_apikey&email=ann%40example.com", "email=ann%40example.com&type=acnt_pw_apikey",
       "expected \"type\", found \"email\""},
      {"&mac=", "&kivoID=1001&mac=", "expected \"mac\", found \"kivoID\""},
      {"lu_sn=2130KVN004211", "lu_sn=2130KVN004212", "\"serial_no\" is not \"lu_sn\""},
      {"430450fe", "430450ff", "\"lu_token\" is wrong"},
      {"&type=", "&kivoID=1001&type=", "\"lu_token\" is wrong"},  // an id that the token does not cover
      {"acnt_pw_apikey", "acnt_pw", "\"type\" is \"acnt_pw\""},
      {"api_key=k1", "api_key=", "\"api_key\" is empty"},
      {"correct%20horse", "correct+horse", "unescaped byte in \"correct+horse\""},
      {"%3A01", "%3a01", "bad escape in \"02%3A00%3A5e%3A00%3A00%3a01\""},
      {"%3A01", "%3A0%31", "needless escape in \"02%3A00%3A5e%3A00%3A00%3A0%31\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint);
    cloud.ClearJournal();
    const bool wrongToken = std::string(row.complaint).find("lu_token\" is") != std::string::npos;
    EXPECT_EQ(wrongToken ? "badauth" : "badparam", Code(Replaced(kLogin, row.from, row.to)));
    EXPECT_THAT(cloud.Complaints(), ElementsAre(std::string("/device/api/password_login: ") + row.complaint));
  }
  const CurlOptions put = {{}, 20000, CurlOptions().caFile, 0, "PUT"};
  const struct {
    std::string url;
    CurlOptions options;
    long status;
    const char* complaint;
  } envelopes[] = {{kLoginUrl, put, 400, "PUT"},
                   {kLoginUrl, {{"Content-Type: text/plain"}}, 400, "content type"},
                   {kLoginUrl + "?a=1", {}, 400, "query text in the URL"},
                   {kHost + "/device/api/no_such", {}, 404, "no such path"},
                   {kHost + "/", {{"Host: evil.example"}}, 404, "no such host"},
                   {kHost + "/", {{"Host: account-test.kivo.example"}}, 404, "handshake was for"}};
  for (const auto& row : envelopes) {
    cloud.ClearJournal();
    EXPECT_EQ(row.status, Post(row.url, kLogin, row.options).status) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
}

TEST_F(SimRequests, RefusalsOfASignInCarryTheirCodeAndNoComplaint) {
  cloud.AddAccount({"bob@example.com", "pw", "1002"});
  cloud.ChangeAccount("bob@example.com", [](Account& bob) { bob.refusal = "account_unverified"; });
  EXPECT_EQ("account_not_found", Code(Replaced(kLogin, "ann%40", "eve%40")));
  EXPECT_EQ("badauth", Code(Replaced(kLogin, "%20horse", "%20Horse")));
  const std::string bob = Replaced(Replaced(kLogin, "ann%40", "bob%40"), "correct%20horse", "pw");
  EXPECT_EQ("account_unverified", Code(bob));
  cloud.RefuseMachine("2130KVN004211");
  EXPECT_EQ("invalid_machine", Code(kLogin));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

}  // namespace
