// The account query: when it asks the server, and that all of an answer is stored, or nothing.
#include <gmock/gmock.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using testing::ElementsAre;
using testing::StartsWith;
using varnkivo::User;

namespace {

constexpr char kLockPath[] = "/tmp/account_query_info.lock";

Json::Value Profile() {
  return ParseJson(R"({"code": "good", "email": "new@example.com", "full_name": "Ann \"New\"", "country": "FRA",
      "timezone": "Europe/Paris", "notify_language": "fre", "activated": true, "disabled": false, "enews": true,
      "critical_release": false, "enews_local_promotion": true, "realname_validation_pass": false,
      "critical_version_list": {"c": true, "a": true, "b": false}, "report_cron_timestring": "1 2 * * 3", "account_host": "https://a.example",
      "identity_host": "https://i.example"})");
}

/// Queries and expects `code`, `log` in the last line, and everything else as it was.
void ExpectRefused(Bench& bench, int code, const std::string& log) {
  Json::Value out = "before";
  const std::string record = ReadFile(kRecord);
  VARNKIVOErrSet(KIVO_ERR_ACCOUNT_LIMIT);
  EXPECT_EQ(-1, VARNKIVOAccountQueryInfo(out, true, false));
  EXPECT_EQ(code, VARNKIVOErrGet());
  EXPECT_EQ(Json::Value("before"), out);
  EXPECT_EQ(record, ReadFile(kRecord));
  EXPECT_THAT(bench.device.LastLine(), testing::HasSubstr(log));
}

TEST(Query, AnswersFromTheRecordAsQuicklyAsIsAsked) {
  for (const bool quick : {true, false}) {
    Bench bench;
    bench.SignIn(300);
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    Json::Value out = ParseJson(quick ? R"({"mine": 1, "email": "old"})" : "[1]");  // added to, or replaced
    ASSERT_EQ(0, VARNKIVOAccountQueryInfo(out, true, quick));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_EQ(quick, out.removeMember("mine", nullptr));
    EXPECT_EQ(R"({"activated":true,"auth_key":"AuthKey+0123456789/abcdef==","country":"DEU","critical_release":true,)"
              R"("disabled":false,"email":"ann@example.com","enews":false,"enews_local_promotion":false,)"
              R"("full_name":"Ann Example","notify_language":"enu","timezone":"Europe/Berlin"})",
              JsonText(out));
    EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT("),
                ElementsAre(quick ? "CURLOPT_TIMEOUT(15)" : "CURLOPT_TIMEOUT(120)"));
  }
}

TEST(Query, AsksWhenTheProfileIsOldEnough) {
  Bench bench;
  const auto asks = [&](std::int64_t lastQuery, bool forced) {
    bench.cloud->ClearJournal();
    bench.SignIn(0);
    User().SetLastQueryTime(lastQuery);
    Json::Value out;
    EXPECT_EQ(0, VARNKIVOAccountQueryInfo(out, forced, false));
    EXPECT_EQ(kEmail, out["email"].asString());
    const bool asked = bench.cloud.Requests().size() == 1;
    EXPECT_EQ(asked ? kNow : lastQuery, User().GetLastQueryTime());
    return asked;
  };
  for (const std::int64_t sign : {1, -1}) {
    for (const std::int64_t age : {0, 299, 300, 86399, 86400}) {
      EXPECT_EQ(age >= 86400, asks(kNow - sign * age, false)) << sign * age;
      EXPECT_EQ(age >= 300, asks(kNow - sign * age, true)) << sign * age << " forced";
    }
  }
  for (const std::int64_t extreme : {INT64_MIN, INT64_MAX, kNow + 0x100000000})  // the last: the same time in 32 bits
    EXPECT_TRUE(asks(extreme, false)) << extreme;
}

TEST(Query, WaitsHalfAMinuteForTheLockAndThenSendsNothing) {
  Bench bench;
  varnkivo::FileLock other(kLockPath);
  ASSERT_TRUE(other.Lock(1));
  bench.SignIn(300);
  bench.device.ForgetCalls();
  ExpectRefused(bench, KIVO_ERR_ACCOUNT_LIMIT, std::string("Failed to lock file: ") + kLockPath);  // the slot as it was
  long waited = 0;
  for (const std::string& call : bench.device.Calls("usleep(")) waited += std::stol(call.substr(7));
  EXPECT_TRUE(waited > 20000000 && waited < 30200000) << waited;
  EXPECT_EQ(0u, bench.cloud->Connections());
}

TEST(Query, StoresTheProfileInOrderAndTheTimeLast) {
  const std::string stored =
      "kivoIDSerial=1|lu_auth_key=k|kivoID=new@example.com|full_name=Ann \\\"New\\\"|country=FRA|timezone=Europe/Paris|"
      "notify_language=fre|activated=yes|disabled=no|enews=yes|enews_local_promotion=yes|critical_release=no|"
      "critical_version_list=a,c|critical_version_domain=a,b,c|realname_validation_pass=no|"
      "report_cron_timestring=1 2 * * 3|account_host=https://a.example|identity_host=https://i.example|"
      "last_query_time=1800000000";
  constexpr std::size_t kCount = 19;
  for (std::size_t count = 2; count <= kCount; ++count) {  // with so many lines in the record a write fails
    SCOPED_TRACE(count);
    Bench bench;
    WriteRecord(Lines(stored, 2));
    bench.cloud.AnswerAll(200, JsonText(Profile()));
    const bool fails = count < kCount;
    if (fails) bench.device.FailAfter("VLIBCFileSetKeyValue", static_cast<int>(count) - 2);
    Json::Value out = "before";
    EXPECT_EQ(fails ? -1 : 0, VARNKIVOAccountQueryInfo(out, false, false));
    EXPECT_EQ(fails ? KIVO_ERR_CONFIG_WRITE : KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_EQ(fails, out == Json::Value("before"));
    EXPECT_EQ(Lines(stored, count), ReadFile(kRecord));
  }
}

TEST(Query, AnswerWithARefusalOrAMemberMissingOrOfAnotherTypeStoresNothing) {
  Bench bench;
  const auto expectRefused = [&](const Json::Value& answer, int code, const std::string& log) {
    SCOPED_TRACE(JsonText(answer));
    bench.SignIn(300);
    bench.cloud.AnswerAll(200, JsonText(answer));
    ExpectRefused(bench, code, "kivo_account_query_info " + log);
  };
  const Json::Value wrong = ParseJson(R"({
      "text": [{}, [], {"a": "b"}, ["a"]],
      "flag": [{}, [], [true], null, 2, -1, 0.5, 1e300, "", "maybe", "1", "TRUE"],
      "list": ["", "a", 0, 5, true, [true], {"a": {}}, {"a": [1]}, {"a": "maybe"}]})");
  const std::string optional = "account_host identity_host report_cron_timestring realname_validation_pass";
  const std::string insufficient = "Server returned insufficient data. resp={";
  for (const std::string& member : Profile().getMemberNames()) {
    const Json::Value good = Profile()[member];
    Json::Value answer = Profile();
    answer.removeMember(member);
    if (optional.find(member) == std::string::npos) expectRefused(answer, KIVO_ERR_RESPONSE, insufficient);
    if (member == "code") continue;
    for (const Json::Value& value : wrong[good.isBool() ? "flag" : good.isObject() ? "list" : "text"]) {
      answer[member] = value;
      expectRefused(answer, KIVO_ERR_RESPONSE, insufficient);
    }
  }
  for (const Json::Value& row :
       ParseJson(R"([["badsys", 6], ["badauth since", 14], ["goo", 24], [0, 24], [{}, 24]])")) {
    Json::Value answer = Profile();
    answer["code"] = row[0];
    expectRefused(answer, row[1].asInt(),
                  "Failed to query 1001, resp=" + JsonText(answer) + ", code=" + row[1].asString());
  }
}

TEST(Query, AnswerMaySayTheSameInOtherWaysOrLeaveOutWhatIsOptional) {
  Bench bench;
  WriteRecord(
      Lines("kivoIDSerial=1|lu_auth_key=k|realname_validation_pass=yes|report_cron_timestring=5 5 * * 5|"
            "account_host=https://account.kivo.example"));
  bench.cloud.AnswerAll(400, R"({"code":"good","email":"e","full_name":"n","country":"c","timezone":"t",)"  // as 200
                             R"("notify_language":"l","activated":1,"disabled":"false","enews":"yes",)"
                             R"("critical_release":"no","enews_local_promotion":0,"critical_version_list":null})");
  Json::Value out;
  EXPECT_EQ(0, VARNKIVOAccountQueryInfo(out, false, false));
  EXPECT_THAT(
      ReadFile(kRecord),
      StartsWith(Lines("kivoIDSerial=1|lu_auth_key=k|realname_validation_pass=no|report_cron_timestring=5 5 * * 5|"
                       "account_host=https://account.kivo.example|kivoID=e|full_name=n|country=c|timezone=t|"
                       "notify_language=l|activated=yes|disabled=no|enews=yes|enews_local_promotion=no|"
                       "critical_release=no|critical_version_list=|critical_version_domain=")));
}

}  // namespace
