// `shop` and `scan`: what they show of what the shop says, what they ask it for, and that an answer from outside is
// told and never obeyed.
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kHistoryPath[] = "api/query.php";
constexpr char kRelay[] = "/usr/varn/etc/varnrelayd/varnrelayd.conf", kDdns[] = "/usr/varn/etc/ddns.conf";

/// Ann is signed in and has bought the four examples.
struct ShopTest : ToolTest {
  ShopTest() {
    SignInLongAgo();
    Cloud().ChangeAccount(kUserId, [](kivosim::Account& account) { account.purchases = kivosim::ExamplePurchases(); });
  }
  static Result Answered(const std::string& body, const Words& arguments) {
    Fault fault = Fault::Answer(200, body);
    fault.skipHandler = true;
    Cloud().QueueFault("*", fault);
    return Tool(arguments);
  }
};

TEST_F(ShopTest, TheDocumentsFitTheirSchemasAndTheKeyIsMasked) {
  const struct {
    const char* schema;
    Words arguments;
    const char* shown;  // by the same command as a text
  } rows[] = {{"shop-items", {"shop", "items", "--language", "ger"}, "photos       photos-faces     Face search"},
              {"shop-item", {"shop", "item", "songbook"}, "Version:           5.2.0"},
              {"shop-purchases", {"shop", "purchases"}, "4 purchases, prices 32.47 in all"},
              {"shop-page-info", {"shop", "page-info"}, "https://account.kivo.example"}};
  for (const auto& row : rows) {
    EXPECT_EQ("", CheckDocument(row.schema, Tool(With(row.arguments, {"--json"})).out));
    EXPECT_THAT(Tool(row.arguments).out, HasSubstr(row.shown));
  }
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
  const Result ordinary = AsOrdinaryUser({"shop", "purchases"});
  EXPECT_EQ(7, ordinary.exit);
  EXPECT_THAT(ordinary.err, HasSubstr("sudo varnkivo shop purchases\n"));
  const Words login = {"shop", "login", "--email", kEmail, "--password-stdin", "--json"};
  const Result good = RunTool({login, kPassword}), bad = RunTool({login, "wrong horse"});
  EXPECT_EQ("", CheckDocument("shop-login", good.out)) << good.err;
  EXPECT_EQ(4, bad.exit);
  EXPECT_THAT(ErrorOf(bad)["cause"].asString(), HasSubstr("The shop refused"));
  EXPECT_THAT(good.out + bad.err + Read("/var/log/syslog"), Not(HasSubstr("horse")));
  const std::string whole = Parse(Tool({"shop", "page-info", "--show-secrets", "--json"}).out)["api_key"].asString();
  ASSERT_GT(whole.size(), 12u);
  EXPECT_THAT(Tool({"shop", "page-info"}).out, Not(HasSubstr(whole.substr(0, 12))));
}

TEST_F(ShopTest, TheHistoryIsFilteredAndAddedUpAndAMistakeIsNotSent) {
  const Words ask = {"shop", "purchases"};
  const Json::Value document =
      Parse(Tool(With(ask, {"--from", "2025-11-30", "--to", "2026-01-17", "--app", "photos", "--app", "songbook",
                            "--price", "4.99", "--price", "9.99", "--payer", "ann.buys", "--json"}))
                .out);
  EXPECT_EQ(2, document["total"].asInt());
  EXPECT_NEAR(14.98, document["price_sum"].asDouble(), 1e-9);
  const auto request = Cloud().Requests(kHistoryPath).at(0);
  EXPECT_EQ("2025-11-30,2026-01-17|photos,songbook|4.99,9.99|ann.buys",
            request.Param("dates") + "|" + request.Param("apps") + "|" + request.Param("prices") + "|" +
                request.Param("paypals"));
  EXPECT_FALSE(request.HasParam("serials"));
  Cloud().ClearJournal();
  const std::string name(257, 'x'), language(33, 'e');
  for (const Words& wrong : {Words{"--from", "2026-02-30"},
                             {"--to", "17.1.2026"},
                             {"--price", "nan"},
                             {"--app", "a,b"},
                             {"--serial", "a\nb"},
                             {"--csv", "--json"},
                             {"--app", name},
                             {"--language", language}})
    EXPECT_EQ(2, Tool(With(ask, wrong)).exit) << wrong[1];
  for (const Words& wrong : {Words{"item", name}, {"item", "a", "--language", language}}) {
    const Result result = Tool(With({"shop"}, wrong));
    EXPECT_EQ(2, result.exit) << wrong[1];
    EXPECT_THAT(result.err, testing::AllOf(HasSubstr("longer than"), Not(HasSubstr(language)), Not(HasSubstr(name))));
  }
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(1, Tool({"shop", "item", name.substr(1), "--language", language.substr(1)}).exit) << "unknown, but asked";
}

TEST_F(ShopTest, ATextOfThePayerIsNeitherAFormulaNorASteeringSequence) {
  const std::string row =
      R"({"code":"good","entries":[{"create_at":null,"app":"=1+1,\"x\"","paypal_id":"@a",)"
      R"("transaction_id":-7,"model":"a\u001b[2J\nb\u202e\u061c","serial":"+\u009b\u2069","price":-4.5}]})";
  EXPECT_EQ(
      "Date,Item,Price,Status,Buyer,Transaction,Model,Serial\r\n"
      ",\"'=1+1,\"\"x\"\"\",-4.50,,'@a,'-7,a\\x1b[2J\\x0ab\\u202e\\u061c,'+\\x9b\\u2069\r\n",
      Answered(row, {"shop", "purchases", "--csv"}).out);
  const Result document = Answered(row, {"shop", "purchases", "--json"});
  for (const char* raw : {"\xc2\x9b", "\xe2\x80\xae", "\xd8\x9c"}) EXPECT_THAT(document.out, Not(HasSubstr(raw)));
}

TEST_F(ShopTest, AnAnswerThatIsNoneIsToldAndNotPrinted) {
  const std::string item = R"({"code":"good","items":[{"app":"a","price":)";
  const struct {
    std::string body;
    int exit;
    const char* cause;
  } rows[] = {{"<html>\x1b[2J", 1, "not JSON"},
              {"", 5, "not able to answer"},
              {std::string(5000, '['), 1, "not JSON"},
              {item + "\"9\"}]}", 5, "wrong types"},
              {item + "1,\"title\":{}}]}", 5, "wrong types"},
              {R"({"code":"badauth"})", 4, "does not accept"},
              {R"({"code":"account_not_found"})", 4, "Run:         varnkivo login\n"},
              {R"({"code":"\u001b[2Jodd"})", 1, "\\x1b[2Jodd"}};
  for (const auto& row : rows) {
    const Result result = Answered(row.body, {"shop", "items"});
    EXPECT_EQ(row.exit, result.exit) << row.body.substr(0, 60);
    EXPECT_THAT(result.err, testing::AllOf(HasSubstr(row.cause), Not(HasSubstr("\x1b"))));
  }
  EXPECT_EQ(5, Answered(R"({"code":"good","entries":[{"price":1,"app":[]}]})", {"shop", "purchases"}).exit);
}

TEST_F(ShopTest, TheScanFindsWhatTheRelayAndDynamicDnsSay) {
  std::filesystem::create_directories("/usr/varn/etc/varnrelayd");
  Write(kRelay, R"({"server_alias":{"alias":"home\u001b"},"server_kivo":{"account":"a@b"}})");
  Write(kDdns, "varn_account=\"a@b\"\nvarn_hostname=\"nas.example\"\n");
  EXPECT_EQ("Account  Service  Value\na@b      farlink  home\\x1b\na@b      ddns     nas.example\n",
            Tool({"scan"}).out);
  EXPECT_EQ(2, WEXITSTATUS(std::system("/usr/varn/sbin/varnddnsinfo --get 2>/tmp/said")));
  Write(kRelay, R"({"server_alias":{"alias":"home"},"server_kivo":{"account":"\n"}})");
  const std::string json = Tool({"scan", "--json"}).out;
  EXPECT_EQ("", CheckDocument("scan", json));
  EXPECT_EQ(1u, Parse(json)["accounts"].size()) << "an empty line names nobody";
  for (const char* path : {kDdns, kRelay}) std::filesystem::remove(path);
}

}  // namespace
}  // namespace tooltest
