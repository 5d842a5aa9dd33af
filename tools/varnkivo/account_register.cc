// `account register`: a new account at the account centre. Changes nothing on the device and signs nobody in: the
// person confirms the e-mail address first.
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <memory>

#include "account_verbs.h"
#include "output.h"
#include "secrets.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kHelp[] = "varnkivo account register --help";
constexpr int kSeconds = 3 * 120 + 2;

struct RegisterOptions {
  std::string email, name, secretFile;
  std::optional<std::string> country;
  bool criticalRelease = false, enews = false, localPromotion = false, secretFromStdin = false, json = false;

  std::string LogIn() const { return "varnkivo login --email " + ShellWord(email); }
  std::string Again() const {
    return "varnkivo account register --email " + ShellWord(email) + " --name " + ShellWord(name) +
           (country ? " --country " + ShellWord(*country) : "") + (criticalRelease ? " --critical-release" : "") +
           (enews ? " --enews" : "") + (localPromotion ? " --local-promotion" : "");
  }
};

Failure RegisterFailure(int code, const RegisterOptions& options) {
  Failure failure = Explain(code, {Situation::Doing::kRegister, options.Again(), "", ""});
  if (code == KIVO_ERR_ACCOUNT_IN_USE) {
    failure.cause =
        "An account with this e-mail address exists already; where this command broke off before, it may be from then.";
    failure.run = options.LogIn();
  }
  return failure;
}

void CheckOptions(const RegisterOptions& options) {
  for (const std::string& text : {options.email, options.name})
    if (text.empty() || HasControls(text)) throw UsageFailure("E-mail address or name is empty or malformed.", kHelp);
  if (options.country && HasControls(*options.country)) throw UsageFailure("The country is malformed.", kHelp);
}

void Register(const RegisterOptions& options) {
  Secret password;
  ReadSecret({"password", "varnkivo.password", options.secretFromStdin, options.secretFile, kHelp, true}, password);
  int result = -1, code = 0;
  {
    const Spinner spinner("Registering " + options.email, kSeconds, !options.json, {&password});
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    result = VARNKIVOAccountRegister(options.email.c_str(), password.c_str(), options.name.c_str(),
                                     options.criticalRelease, options.enews, options.localPromotion,
                                     options.country ? options.country->c_str() : nullptr);
    code = VARNKIVOErrGet();
  }
  if (result != 0) throw RegisterFailure(code, options);
}

Exit RunRegister(const RegisterOptions& options) {
  CheckOptions(options);
  Register(options);
  if (options.json) {
    Json::Value document = NewDocument();
    document["result"] = "registered";
    document["email"] = Utf8(options.email);
    document["run"] = Utf8(options.LogIn());
    PrintDocument(document);
    return kDone;
  }
  std::printf("Registered %s\n", Printable(options.email).c_str());
  std::fprintf(stderr, "varnkivo: Confirm the e-mail address by the link in the mail, then run: %s\n",
               Printable(options.LogIn()).c_str());
  return kDone;
}

}  // namespace

void AddAccountRegister(Verb account, Invocation& call) {
  auto options = std::make_shared<RegisterOptions>();
  const Verb verb =
      account.AddVerb(call, "register", "Create a new account; the e-mail address is confirmed by mail",
                      "varnkivo account register --email ann@example.com --name \"Ann Example\"\n\n"
                      "The password comes from standard input, a file only its owner can read, the service\n"
                      "manager ($CREDENTIALS_DIRECTORY/varnkivo.password), or a prompt, which asks twice.");
  verb.Text("--email", options->email, "E-mail address of the new account").Required();
  verb.Text("--name", options->name, "Full name of its owner").Required();
  verb.Text("--country", options->country, "Country of its owner");
  verb.Flag("--critical-release", options->criticalRelease, "Mails about critical releases");
  verb.Flag("--enews", options->enews, "News by mail");
  verb.Flag("--local-promotion", options->localPromotion, "Local promotions by mail");
  const Option input = verb.Flag("--password-stdin", options->secretFromStdin, "Read it from standard input");
  verb.Text("--password-file", options->secretFile, "Read the password from this file").Excludes(input);
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunRegister(*options); };
  });
}

}  // namespace kivotool
