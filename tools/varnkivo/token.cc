// `token`: prints a valid token of this device, renewed where it has expired. The token goes to stdout and nowhere
// else. A token is a secret: the formats exist so that scripts need not put it on a command line.
#include <cstdio>
#include <ctime>
#include <memory>

#include "command_line.h"
#include "device_token.h"
#include "failure.h"
#include "output.h"
#include "text.h"
#include "token_state.h"

namespace kivotool {
namespace {

constexpr char kDevice[] = "lum";

struct TokenOptions {
  std::string format = "token";
  bool id = false;
  long minValid = 0;
};

std::string Again(const TokenOptions& options) { return options.id ? "varnkivo token --id" : "varnkivo token"; }

void RequireValidity(const TokenOptions& options, const TokenState& state, std::int64_t now) {
  const std::int64_t left = state.expiresAt - now;
  if (options.minValid <= 0 || left >= options.minValid) return;
  throw Failure{kUnreachable,
                std::nullopt,
                "The token is valid for " + std::to_string(left) + " s only.",
                Retry::kYes,
                "It renews the token when that has expired, not before.",
                left < 0 ? Again(options) : "sleep " + std::to_string(left + 1) + "; " + Again(options)};
}

void Print(const TokenOptions& options, const std::string& token, const TokenState& state, std::int64_t now) {
  const char* kind = options.id ? "id" : "access";
  if (options.format == "json") {
    Json::Value document = NewDocument();
    document["kind"] = kind;
    document["token"] = Utf8(token);
    SetTime(document, "expires", state.expiresAt);
    document["seconds_left"] = static_cast<Json::Int64>(state.expiresAt - now);
    PrintDocument(document);
  } else if (options.format == "env") {
    std::printf("%s=%s\n", options.id ? "VARNKIVO_ID_TOKEN" : "VARNKIVO_ACCESS_TOKEN", ShellWord(token).c_str());
  } else {
    std::printf("%s%s\n", options.format == "header" ? "Authorization: Bearer " : "", token.c_str());
  }
}

Exit RunToken(const TokenOptions& options) {
  const std::string token = FetchDeviceToken(options.id, Again(options), options.format == "json");
  const TokenState state = ReadTokenState(kDevice);
  const std::int64_t now = std::time(nullptr);
  RequireValidity(options, state, now);
  Print(options, token, state, now);
  return kDone;
}

}  // namespace

void AddToken(CLI::App& app, Invocation& call) {
  auto options = std::make_shared<TokenOptions>();
  CLI::App* verb =
      AddVerb(app, call, "token", "Print a valid access token of this device, renewed where it has expired",
              "curl -H @<(varnkivo token --format header) https://account.kivo.example/...\n"
              "  eval \"$(varnkivo token --format env)\"\n"
              "  varnkivo token --min-valid 300 --json");
  verb->add_option("--format", options->format, "token, json, env or header")
      ->check(CLI::IsMember({"token", "json", "env", "header"}));
  verb->add_flag("--id", options->id, "The id token instead of the access token");
  verb->add_option("--min-valid", options->minValid, "End with 5 when fewer seconds are left")
      ->check(CLI::NonNegativeNumber);
  verb->callback([options, &call] {
    if (call.json) options->format = "json";
    call.json = options->format == "json";
    call.run = [options] { return RunToken(*options); };
  });
}

}  // namespace kivotool
