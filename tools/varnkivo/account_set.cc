// `account set`: changes the profile of the signed-in account at the account centre, and only what is named. The stored
// profile stays as it is until the next query. A new e-mail address goes out only with the current password: the
// library leaves it out otherwise, without a word.
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <memory>

#include "account_state.h"
#include "account_verbs.h"
#include "output.h"
#include "secrets.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kHelp[] = "varnkivo account set --help";
constexpr char kRefresh[] = "varnkivo account show --refresh";
constexpr int kSeconds = 3 * 120 + 2;

struct SetOptions {
  std::optional<std::string> name, email, country, language, timeZone, versions;
  std::optional<std::string> enews, criticalRelease, localPromotion;  // "yes" or "no"
  std::string secretFile;
  bool secretFromStdin = false, json = false;
};

struct Part {
  const char* option;
  const std::optional<std::string>& value;
};

std::vector<Part> PartsOf(const SetOptions& options) {
  return {{"name", options.name},
          {"email", options.email},
          {"country", options.country},
          {"language", options.language},
          {"timezone", options.timeZone},
          {"enews", options.enews},
          {"critical-release", options.criticalRelease},
          {"local-promotion", options.localPromotion},
          {"versions", options.versions}};
}

std::vector<Part> Given(const SetOptions& options) {
  std::vector<Part> given;
  for (const Part& part : PartsOf(options))
    if (part.value) given.push_back(part);
  return given;
}

void CheckOptions(const SetOptions& options) {
  const std::vector<Part> given = Given(options);
  if (given.empty()) throw UsageFailure("Nothing to change was given.", kHelp);
  for (const Part& part : given) {
    if (HasControls(*part.value))
      throw UsageFailure(std::string("--") + part.option + " cannot hold control characters.", kHelp);
  }
  if (options.email && options.email->empty()) throw UsageFailure("The e-mail address is empty.", kHelp);
  if (!options.email && (options.secretFromStdin || !options.secretFile.empty()))
    throw UsageFailure("A password is needed with --email only.", kHelp);
}

std::string Again(const SetOptions& options) {
  std::string command = "varnkivo account set";
  for (const Part& part : Given(options)) command += std::string(" --") + part.option + " " + ShellWord(*part.value);
  return command;
}

const char* Text(const std::optional<std::string>& value) { return value ? value->c_str() : nullptr; }
int Flag(const std::optional<std::string>& value) { return !value ? -1 : *value == "yes" ? 1 : 0; }

void Change(const SetOptions& options) {
  Secret password;
  if (options.email) {
    ReadSecret({"current password", "varnkivo.password", options.secretFromStdin, options.secretFile, kHelp}, password);
  }
  int result = -1, code = 0;
  {
    const Spinner spinner("Changing the account", kSeconds, !options.json, {&password});
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    result = VARNKIVOAccountSetInfo(Text(options.name), Text(options.email), options.email ? password.c_str() : nullptr,
                                    nullptr, Text(options.country), Text(options.language), Text(options.timeZone),
                                    Flag(options.enews), Flag(options.criticalRelease), Flag(options.localPromotion),
                                    Text(options.versions));
    code = VARNKIVOErrGet();
  }
  if (result == 0) return;
  const auto doing = options.email ? Situation::Doing::kChangeWithPassword : Situation::Doing::kChange;
  throw Explain(code, {doing, Again(options), "", ""});
}

void Print(const SetOptions& options) {
  if (options.json) {
    Json::Value document = NewDocument();
    document["result"] = "changed";
    document["changed"] = Json::Value(Json::arrayValue);
    for (const Part& part : Given(options)) document["changed"].append(part.option);
    document["run"] = kRefresh;
    PrintDocument(document);
    return;
  }
  std::string list;
  for (const Part& part : Given(options)) list += (list.empty() ? "" : ", ") + std::string(part.option);
  std::printf("Changed %s\n", list.c_str());
  std::fprintf(stderr,
               "varnkivo: The stored profile follows with the next query, five minutes after the last one: %s\n",
               kRefresh);
}

Exit RunSet(const SetOptions& options) {
  CheckOptions(options);
  if (ReadAccountState().signIn != SignIn::kSignedIn) throw NotSignedInFailure();
  Change(options);
  Print(options);
  return kDone;
}

}  // namespace

void AddAccountSet(Verb account, Invocation& call) {
  auto options = std::make_shared<SetOptions>();
  const Verb verb =
      account.AddVerb(call, "set", "Change the signed-in account; only what is given is sent",
                      "varnkivo account set --name \"Ann Example\" --enews no\n"
                      "  varnkivo account set --email new@example.com   # asks for the current password\n\n"
                      "The password for --email comes from standard input, a file only its owner can read, the\n"
                      "service manager ($CREDENTIALS_DIRECTORY/varnkivo.password), or a prompt.");
  verb.Text("--name", options->name, "Full name");
  verb.Text("--email", options->email, "E-mail address; needs the current password");
  verb.Text("--country", options->country, "Country");
  verb.Text("--language", options->language, "Language of the mails");
  verb.Text("--timezone", options->timeZone, "Time zone");
  const std::vector<std::string> yesOrNo = {"yes", "no"};
  verb.Text("--enews", options->enews, "News by mail: yes or no").OneOf(yesOrNo);
  verb.Text("--critical-release", options->criticalRelease, "Mails about critical releases: yes or no").OneOf(yesOrNo);
  verb.Text("--local-promotion", options->localPromotion, "Local promotions by mail: yes or no").OneOf(yesOrNo);
  verb.Text("--versions", options->versions, "Versions whose critical releases matter, with commas between");
  const Option input = verb.Flag("--password-stdin", options->secretFromStdin, "Read it from standard input");
  verb.Text("--password-file", options->secretFile, "Read the password from this file").Excludes(input);
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunSet(*options); };
  });
}

}  // namespace kivotool
