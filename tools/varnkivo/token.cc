// `token`: prints a valid token of this device or of a package, renewed where it has expired. The token goes to stdout
// and nowhere else. A token is a secret: the formats exist so that scripts need not put it on a command line.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "command_line.h"
#include "fetch_token.h"
#include "output.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr std::int64_t kYear = 31536000;  // seconds; no token is asked to live longer

struct TokenOptions {
  std::string format = "token";
  TokenWish wish;
};

void Print(const TokenOptions& options, const FetchedToken& token) {
  const bool id = options.wish.id;
  if (options.format == "json") {
    Json::Value document = NewDocument();
    document["kind"] = id ? "id" : "access";
    document["package"] = TextOrNull(options.wish.package);
    document["token"] = Utf8(token.text);
    SetTime(document, "expires", token.state.expiresAt);
    document["seconds_left"] = static_cast<Json::Int64>(token.state.expiresAt - token.at);
    PrintDocument(document);
  } else if (options.format == "env") {
    std::printf("%s=%s\n", id ? "VARNKIVO_ID_TOKEN" : "VARNKIVO_ACCESS_TOKEN", ShellWord(token.text).c_str());
  } else {
    std::printf("%s%s\n", options.format == "header" ? "Authorization: Bearer " : "", token.text.c_str());
  }
}

Exit RunToken(TokenOptions& options) {
  options.wish.again = "varnkivo token" + PackageWords(options.wish) + (options.wish.id ? " --id" : "");
  Print(options, FetchToken(options.wish, options.format == "json"));
  return kDone;
}

}  // namespace

void AddToken(Verb app, Invocation& call) {
  auto options = std::make_shared<TokenOptions>();
  const Verb verb = app.AddVerb(
      call, "token", "Print a valid access token of this device or of a package, renewed where it has expired",
      "curl -H @<(varnkivo token --format header) https://account.kivo.example/...\n"
      "  eval \"$(varnkivo token --format env)\"\n"
      "  varnkivo token --min-valid 300 --json\n"
      "  varnkivo token --package photos --min-valid 300");
  verb.Text("--format", options->format, "token, json, env or header").OneOf({"token", "json", "env", "header"});
  verb.Flag("--id", options->wish.id, "The id token instead of the access token");
  const Option package = AddPackageOption(verb, options->wish);
  verb.Flag("--force", options->wish.grantAnew, "Have the package's token granted anew first").Needs(package);
  verb.Seconds("--min-valid", options->wish.minValid, kYear,
               "With fewer seconds left: a package's token is granted anew, else the tool ends with 5");
  verb.OnUse([options, &call] {
    if (call.json) options->format = "json";
    call.json = options->format == "json";
    call.run = [options] { return RunToken(*options); };
  });
}

}  // namespace kivotool
