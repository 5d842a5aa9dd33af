// The program: its ready line, its way of ending, its command line, and the control interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "sim/curl_client.h"

namespace {

using testing::HasSubstr;

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

/// Starts the program and waits for its first line of output.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int out[2];
    EXPECT_EQ(0, pipe(out));
    arguments.insert(arguments.begin(), VARNKIVO_SIM_PROGRAM);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      dup2(out[1], 2);
      execv(pointers[0], pointers.data());
      _exit(127);
    }
    close(out[1]);
    output_ = fdopen(out[0], "r");
    line = ReadLine();
  }
  ~Program() {
    if (pid_ > 0) End(SIGKILL);
    fclose(output_);
  }
  std::string ReadLine() {
    std::string text;
    for (int c = fgetc(output_); c != EOF && c != '\n'; c = fgetc(output_)) text += static_cast<char>(c);
    return text;
  }
  /// Exit status, or -1 when a signal ended it.
  int End(int signal) {
    if (signal) kill(pid_, signal);
    int status = 0;
    EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string line;

 private:
  pid_t pid_;
  FILE* output_;
};

const std::string kLogin =
    "lu_sn=2130KVN004211&lu_token=430450fef2cf32aad9ad39f451c755a5&type=acnt_pw_apikey&email=ann%40example.com"
    "&passwd=correct%20horse&serial_no=2130KVN004211&api_key=k1&mac=02";

class Sim {
 public:
  explicit Sim(std::vector<std::string> arguments = {}) : program(std::move(arguments)), ready(Parse(program.line)) {}
  Exchange Control(const std::string& method, const std::string& path, const std::string& body = "") {
    const CurlOptions options{{}, 20000, "", 0, method};
    const std::string url = ready["control"].asString() + path;
    return method == "GET" ? Get(url, options) : Post(url, body, options);
  }
  std::string Login(const std::string& body = kLogin) {
    CurlOptions options;
    options.caFile = ready["ca"].asString();
    const Exchange exchange = Post("https://account.kivo.example/device/api/password_login", body, options);
    return exchange.curlCode ? "curl " + std::to_string(exchange.curlCode) : Parse(exchange.body)["code"].asString();
  }
  Program program;
  Json::Value ready;
};

TEST(SimProgram, SaysWhenItIsReadyAndEndsCleanlyOnASignal) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Sim sim;
    EXPECT_TRUE(sim.ready["ready"].asBool());
    EXPECT_EQ(443, sim.ready["port"].asInt());
    EXPECT_EQ("good", sim.Login());
    EXPECT_EQ(0, sim.program.End(signal));
    EXPECT_EQ("", sim.program.ReadLine());  // one line and no more
    EXPECT_NE(0, access(sim.ready["ca"].asCString(), F_OK));
  }
}

TEST(SimProgram, MistakesEndIt) {
  std::ofstream("/tmp/bad.json") << R"([{"email":"a","password":"b","user_id":"c","colour":"red"}])";
  const struct {
    std::vector<std::string> arguments;
    int status;
    const char* message;
  } rows[] = {{{"--accounts", "/tmp/bad.json"}, 2, "/tmp/bad.json: unknown member \"colour\""},
              {{"--address", "nowhere"}, 1, "cannot listen on nowhere:443"},
              {{"--trust-into", "/no/folder/x"}, 1, "/no/folder/x"}};
  for (const auto& row : rows) {
    Program program(row.arguments);
    EXPECT_THAT(program.line, HasSubstr(row.message));
    EXPECT_EQ(row.status, program.End(0)) << row.message;
  }
}

TEST(SimControl, CallsChangeWhatTheCloudAnswers) {
  Sim sim;
  const auto call = [&](const char* path, const char* body) {
    const Exchange exchange = sim.Control("POST", path, body);
    EXPECT_EQ("{\"ok\":true}\n", exchange.body) << path;
    EXPECT_EQ(200, exchange.status);
  };
  EXPECT_EQ("good", sim.Login());
  call("/forget-api-key", R"({"serial":"2130KVN004211"})");
  EXPECT_EQ("apikey_not_found", sim.Login());
  call("/register-api-key", R"({"serial":"2130KVN004211","key":"k1"})");
  call("/expire-api-key", R"({"serial":"2130KVN004211"})");
  EXPECT_EQ("apikey_expired", sim.Login());
  call("/reset", "");
  EXPECT_EQ("good", sim.Login());
  const auto keys = [&] { return Parse(sim.Control("GET", "/state").body)["accounts"][0]["auth_keys"].size(); };
  EXPECT_EQ(1u, keys());
  call("/revoke", R"({"email":"ann@example.com"})");
  EXPECT_EQ(0u, keys());
  call("/accounts", R"({"email":"ann@example.com","password":"correct horse","user_id":"1001","refusal":"badsys"})");
  EXPECT_EQ("badsys", sim.Login());
  call("/refuse-machine", R"({"serial":"2130KVN004211"})");
  EXPECT_EQ("invalid_machine", sim.Login());
  call("/faults", R"([{"path":"device/api/password_login","status":200,"body":"{\"code\":\"x\"}","times":2},
                      {"connection":"certificate","certificate":"expired"}])");
  EXPECT_EQ("curl 60", sim.Login());
  EXPECT_EQ("x", sim.Login());
  EXPECT_EQ(200, sim.Control("DELETE", "/faults").status);
  EXPECT_EQ("badparam", sim.Login("a=1"));
  const Json::Value journal = Parse(sim.Control("GET", "/journal").body);
  EXPECT_EQ(kLogin, journal[0]["request"]["body"].asString());
  EXPECT_THAT(journal[journal.size() - 1]["complaint"].asString(), HasSubstr("lu_sn"));
  EXPECT_EQ(200, sim.Control("DELETE", "/journal").status);
  EXPECT_EQ(0u, Parse(sim.Control("GET", "/journal").body).size());
}

TEST(SimControl, TokensAreIssuedListedWithoutBeingShownExpiredAndRevoked) {
  Sim sim;
  CurlOptions options;
  options.caFile = sim.ready["ca"].asString();
  const auto call = [&](const char* path, const char* body) {
    const Exchange exchange = sim.Control("POST", path, body);
    EXPECT_EQ("{\"ok\":true}\n", exchange.body) << path;
  };
  const auto tokens = [&](const char* body) { return Parse(sim.Control("POST", "/tokens", body).body); };
  const auto status = [&](const Json::Value& file) {
    options.headers = {"Authorization: Bearer " + file["access_token"].asString()};
    return Post("https://account.kivo.example/oauth2/api/v1/device/core/authkey/exchange", "", options).status;
  };
  call("/token-lifetime", R"({"seconds":7,"client_id":"kivo-device"})");
  const Json::Value file = tokens(R"({"user_id":"1001","serial":"S1","age":3})");
  EXPECT_EQ(7, file["expires_in"].asInt());
  EXPECT_EQ(200, status(file));
  call("/pass-time", R"({"seconds":7})");
  EXPECT_EQ(401, status(file));
  const Json::Value next = tokens(R"({"email":"ann@example.com","serial":"S1"})");
  call("/take-down", R"({"what":"account","status":500})");
  EXPECT_EQ(500, status(next));
  call("/bring-back", R"({})");
  EXPECT_EQ(200, status(next));
  call("/expire-tokens", R"({"client_id":"kivo-device"})");
  EXPECT_EQ(401, status(next));
  call("/revoke-tokens", R"({"family":1})");
  const Exchange listing = sim.Control("GET", "/tokens");
  const Json::Value families = Parse(listing.body)["families"];
  ASSERT_EQ(2u, families.size());
  EXPECT_TRUE(families[0]["revoked"].asBool());
  EXPECT_FALSE(families[1]["revoked"].asBool());
  EXPECT_EQ("S1", families[1]["serial"].asString());
  for (const char* name : {"access_token", "refresh_token", "id_token"})
    EXPECT_EQ(std::string::npos, listing.body.find(next[name].asString()));
}

TEST(SimControl, CallsThatAreNotUnderstoodSaySo) {
  Sim sim;
  const struct {
    const char *path, *body, *error;
  } rows[] = {{"/nothing", "", "no such call: /nothing"},
              {"/faults", R"({"path":"x","end":"bang"})", "\\\"end\\\" cannot be \\\"bang\\\""},
              {"/faults", R"({"path":"x","statsu":1})", "unknown member \\\"statsu\\\""},
              {"/faults", R"({"path":"x","status":"1"})", "\\\"status\\\" must be a number"},
              {"/revoke", R"({"email":"nobody"})", "no such account"},
              {"/revoke-tokens", R"({"family":9})", "no such family"},
              {"/take-down", R"({"what":"identty"})", "no host, family of hosts or path"}};
  for (const auto& row : rows) {
    const Exchange exchange = sim.Control("POST", row.path, row.body);
    EXPECT_EQ(*row.body ? 400 : 404, exchange.status) << row.error;
    EXPECT_THAT(exchange.body, HasSubstr(row.error));
  }
  EXPECT_EQ(0, Parse(sim.Control("GET", "/state").body)["pending_faults"].asInt());
}

}  // namespace
