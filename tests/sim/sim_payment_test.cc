// The shop: signing in, the catalogue, the history and its filters, and purchases in the control interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/control.h"
#include "sim/device_token.h"
#include "sim/identity_client.h"
#include "sim/json_text.h"
#include "sim/simulator.h"

namespace {

const std::string kShop = "https://payment.kivo.example/api/";
const std::string kDevice = "lu_sn=2130KVN004211&lu_token=430450fef2cf32aad9ad39f451c755a5";
const std::string kDigest = "3cb4e732631f47e6eb961f34554b7cde";

class SimPayment : public testing::Test {
 protected:
  void SetUp() override {
    cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
    cloud.ChangeAccount("1001", [](kivosim::Account& ann) {
      ann.authKeys[kSerial] = "ak-1";
      ann.purchases = kivosim::ExamplePurchases();
    });
    cloud.Start();
  }
  kivosim::Simulator cloud;
  kivosim::Control control{cloud, 0, {}};
};

TEST_F(SimPayment, SigningInAndTheCatalogueAnswerTheRightAndRefuseTheWrong) {
  const std::string pair = "&kivoID=ann%40example.com&kivoPW=" + kDigest, wrong = Replaced(pair, "3cb4", "3cb5");
  const std::string start = "lu_sn=" + kSerial + "&lu_token=";
  const std::string ann = start + kivosim::DeviceToken(kSerial, "ann@example.com", kDigest) + pair;
  const std::string eve = start + kivosim::DeviceToken(kSerial, "ann@example.com", "3cb5" + kDigest.substr(4)) + wrong;
  const struct {
    bool get;
    const char* path;
    std::string parameters;
    const char *body, *complaint;
  } rows[] = {
      {false, "auth.php", ann + pair + "&language=fre", R"({"code":"good","email":"ann@example.com"})", ""},
      {false, "auth.php", eve + wrong, R"({"code":"badauth"})", ""},
      {false, "auth.php", eve + pair, "badparam", "two values of \"kivoPW\""},
      {false, "auth.php", ann, "badparam", "expected \"kivoID\", found the end"},
      {false, "auth.php", Replaced(ann, "_token=", "_token=0") + pair, "badauth", "\"lu_token\" is wrong"},
      {true, "auth.php", ann + pair, "badparam", "method is GET"},
      {true, "getItemList.php", kDevice + "&language=fre", R"({"app":"photos","currency":"EUR","item":"photos-fa)", ""},
      {true, "getItemList.php", ann, R"("language":"enu")", ""},
      {true, "getItemList.php", eve, "badauth", ""},
      {false, "getItemList.php", kDevice, "badparam", "method is POST"},
      {true, "package/record", kDevice + "&app=songbook", R"("title":"Song Book","version":"5.2.0")", ""},
      {true, "package/record", kDevice + "&app=2%0A", R"({"code":"badparam"})", ""},
      {true, "package/record", kDevice + "&app=a+b", "badparam", "unescaped byte in \"a+b\""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path + row.parameters);
    const std::string url = kShop + row.path;
    const Exchange answer = row.get ? Get(url + "?" + row.parameters) : Post(url, row.parameters);
    EXPECT_EQ(std::string(row.body).find("bad") == std::string::npos ? 200 : 400, answer.status);
    EXPECT_THAT(answer.body, testing::HasSubstr(row.body));
    EXPECT_EQ(row.complaint, cloud.Journal().back().complaint);
  }
}

TEST_F(SimPayment, TheHistoryTellsWhatTheFiltersLetThrough) {
  const std::string query = kDevice + "&action=get_history&id=1001&auth_key=ak-1&serial_no=2130KVN004211&language=enu";
  const struct {
    const char *filters, *found, *complaint;  // found: the last digits of the transactions
  } rows[] = {{"", "1234", ""},
              {"&dates=2025-11-30%2C2026-01-17", "23", ""},
              {"&dates=%2C2025-11-29", "1", ""},
              {"&dates=2026-01-18%2C", "4", ""},
              {"&dates=%2C&apps=&paypals=", "1234", ""},
              {"&apps=songbook%2Cpulsewatch", "24", ""},
              {"&apps=photo", "", ""},
              {"&prices=9.9900000000000002%2C12.5%2C4.99x", "24", ""},
              {"&dates=2025-01-01%2C&apps=photos&serials=1980KVN000017&prices=4.99&paypals=ann.buys", "3", ""},
              {"&paypals=family.purse", "4", ""},
              {"&paypals=ann.buys&apps=pulsewatch", "", "unexpected \"apps\""},
              {"&dates=2026-1-1%2C", "", "\"dates\" is \"2026-1-1,\""}};
  for (const auto& row : rows) {
    const Json::Value answer = kivosim::ParseJson(Post(kShop + "query.php", query + row.filters).body);
    std::string found;
    for (const Json::Value& entry : answer["entries"]) found += entry["transaction_id"].asString().back();
    EXPECT_EQ(row.found, found) << row.filters;
    EXPECT_EQ(*row.complaint ? "badparam" : "good", answer["code"].asString());
    EXPECT_EQ(row.complaint, cloud.Journal().back().complaint);
  }
  EXPECT_EQ("{\"code\":\"badauth\"}", Post(kShop + "query.php", Replaced(query, "ak-1", "ak-2")).body);
  const std::string purchases = R"([{"app":"a","create_at":"2026-11-20","model":"m","pay_status":"Pending",)"
                                R"("paypal_id":"p","price":9.99,"serial":"s","transaction_id":"t"}])";
  const std::string change = R"({"user_id":"1001","purchases":)", url = control.Url() + "/change-account";
  EXPECT_EQ(200, Post(url, change + purchases + "}").status);
  EXPECT_EQ(400, Post(url, change + Replaced(purchases, "9.99", "\"9.99\"") + "}").status);
  EXPECT_EQ(R"({"code":"good","entries":)" + purchases + "}", Post(kShop + "query.php", query).body);
  EXPECT_THAT(Get(control.Url() + "/state").body, testing::HasSubstr("\"purchases\":" + purchases));
}

}  // namespace
