// `shop login`: whether the shop takes an e-mail and a password. It answers with nothing that could be kept, so that
// the device is the same afterwards; the password leaves it as a digest only.
#include <cstdio>
#include <memory>

#include "output.h"
#include "secrets.h"
#include "shop_answer.h"
#include "shop_verbs.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kHelp[] = "varnkivo shop login --help";
constexpr std::size_t kMostInEmail = 512;

struct ShopLoginOptions {
  std::string email, language, secretFile;
  bool secretFromStdin = false, json = false;
};

Exit RunShopLogin(const ShopLoginOptions& options) {
  if (options.email.empty()) throw UsageFailure("The e-mail address is empty.", kHelp);
  CheckShopValue("The e-mail address", options.email, kMostInEmail, kHelp);
  CheckShopValue("--language", options.language, kMostInLanguage, kHelp);
  const Situation situation = {Situation::Doing::kShopLogin, "varnkivo shop login --email " + ShellWord(options.email),
                               "", ""};
  Secret secret;
  ReadSecret({"password", "varnkivo.password", options.secretFromStdin, options.secretFile, kHelp}, secret);
  ShopResponse response;
  {
    const Spinner spinner("Signing in to the shop as " + options.email, kShopSeconds, !options.json, {&secret});
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    const int result = VARNPaymentHTTPSAuth(options.email.c_str(), secret.c_str(),
                                            options.language.empty() ? nullptr : options.language.c_str(), &response);
    secret.Wipe();
    if (result != 0) throw Explain(VARNKIVOErrGet(), situation);
  }
  ParseShopAnswer(response, situation);
  if (options.json) {
    Json::Value document = NewDocument();
    document["result"] = "accepted";
    document["email"] = Utf8(options.email);
    PrintDocument(document);
  } else {
    std::printf("The shop accepts %s\n", Printable(options.email).c_str());
  }
  return kDone;
}

}  // namespace

void AddShopLogin(Verb shop, Invocation& call) {
  auto options = std::make_shared<ShopLoginOptions>();
  const Verb verb = shop.AddVerb(call, "login", "Try an e-mail and password at the shop; the device keeps nothing",
                                 "varnkivo shop login --email ann@example.com\n\n"
                                 "The password comes from standard input, a file only its owner can read, the service\n"
                                 "manager ($CREDENTIALS_DIRECTORY/varnkivo.password), or a prompt.");
  verb.Text("--email", options->email, "E-mail address of the account").Required();
  verb.Text("--language", options->language, "Language of the answer, as \"enu\"");
  const Option input = verb.Flag("--password-stdin", options->secretFromStdin, "Read it from standard input");
  verb.Text("--password-file", options->secretFile, "Read the password from this file").Excludes(input);
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunShopLogin(*options); };
  });
}

}  // namespace kivotool
