// `account show`: the profile of the signed-in account as the record has it, or after asking the account centre. Asking
// can end the sign-in: a refused auth key makes the library remove the record.
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <sstream>

#include "account_state.h"
#include "account_verbs.h"
#include "command_line.h"
#include "history.h"
#include "output.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kAgain[] = "varnkivo account show --refresh";
constexpr int kQuerySeconds = 30 + 2 * 15 + 1;  // the lock, then two short attempts

struct ShowOptions {
  bool json = false, refresh = false, showSecrets = false;
};

/// Asks the account centre. True when it really was asked; a profile younger than 5 minutes is not asked for.
bool Refresh(const Beginning& beginning, bool json) {
  const AccountState& before = beginning.account;
  if (before.signIn != SignIn::kSignedIn) return false;  // the caller prints the empty document first
  Json::Value profile;  // what is printed is read from the record, which has all of this and more
  int result = -1, code = 0;
  const auto begin = std::chrono::steady_clock::now();
  {
    const Spinner spinner("Asking the account centre", kQuerySeconds, !json);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    result = VARNKIVOAccountQueryInfo(profile, true, true);
    code = VARNKIVOErrGet();
  }
  if (result == 0) return ReadAccountState().lastQuery != before.lastQuery;
  const SignOut signOut = NoticeSignOut(beginning, code, code == KIVO_ERR_NO_ACCOUNT, VoiceFor(json));
  if (signOut == SignOut::kOther) throw SignedOutMeanwhileFailure();
  Situation situation;
  situation.doing = Situation::Doing::kQuery;
  situation.again = kAgain;
  situation.seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
  throw Explain(code, situation);
}

Json::Value SplitAtCommas(const std::string& text) {
  Json::Value out(Json::arrayValue);
  std::string part;
  for (std::istringstream parts(text); std::getline(parts, part, ',');) out.append(Utf8(part));
  return out;
}

Json::Value ToDocument(const AccountState& state, bool refreshed, bool showSecrets) {
  const varnkivo::User user;
  const bool known = state.signIn == SignIn::kSignedIn && state.lastQuery > 0;  // flags before a query say nothing
  const auto flag = [known](bool value) { return known ? Json::Value(value) : Json::Value(); };
  Json::Value document = NewDocument();
  document["state"] = SignInName(state.signIn);
  document["signed_in"] = state.signIn == SignIn::kSignedIn;
  document["refreshed"] = refreshed;
  document["email"] = TextOrNull(state.email);
  document["user_id"] = TextOrNull(state.userId);
  document["full_name"] = TextOrNull(user.GetName());
  document["country"] = TextOrNull(user.GetCountry());
  document["timezone"] = TextOrNull(user.GetTimezone());
  document["notify_language"] = TextOrNull(user.GetNotifyLanguage());
  document["activated"] = flag(user.GetIsActivated());
  document["disabled"] = flag(user.GetIsDisabled());
  document["enews"] = flag(user.GetIsEnews());
  document["enews_local_promotion"] = flag(user.GetIsEnewsLocalPromotion());
  document["critical_release"] = flag(user.GetIsCriticalRelease());
  document["realname_validated"] = flag(user.GetIsRealnameValidationPass());
  document["critical_versions"] = SplitAtCommas(user.GetCriticalVersionList());
  document["critical_version_choices"] = SplitAtCommas(user.GetCriticalVersionDomain());
  document["report_schedule"] = Utf8(user.GetReportCronTimestring());
  SetTime(document, "last_query", state.lastQuery);
  if (showSecrets) document["auth_key"] = TextOrNull(user.GetAuthKey());
  return document;
}

std::string Words(const Json::Value& value) {
  if (value.isBool()) return value.asBool() ? "yes" : "no";
  if (value.isString()) return value.asString();
  std::string list;
  for (const Json::Value& item : value) list += (list.empty() ? "" : ", ") + item.asString();
  return list;
}

void PrintText(const Json::Value& document, std::int64_t lastQuery, std::int64_t now) {
  const struct {
    const char* label;
    const char* key;
  } rows[] = {{"E-mail", "email"},
              {"User id", "user_id"},
              {"Name", "full_name"},
              {"Country", "country"},
              {"Time zone", "timezone"},
              {"Language", "notify_language"},
              {"Activated", "activated"},
              {"Disabled", "disabled"},
              {"News", "enews"},
              {"Local promotions", "enews_local_promotion"},
              {"Critical releases", "critical_release"},
              {"Name validated", "realname_validated"},
              {"Chosen versions", "critical_versions"},
              {"Report schedule", "report_schedule"}};
  for (const auto& row : rows) PrintField(row.label, Words(document[row.key]));
  PrintField("Last query", Ago(lastQuery, now));
  if (document.isMember("auth_key")) PrintField("Auth key", Words(document["auth_key"]));
}

Exit RunShow(const ShowOptions& options) {
  const bool refreshed = options.refresh && Refresh(Begin(), options.json);
  const AccountState state = ReadAccountState();
  const bool signedIn = state.signIn == SignIn::kSignedIn;
  const Json::Value document = WithRecord([&] { return ToDocument(state, refreshed, options.showSecrets); });
  if (options.json) PrintDocument(document);
  if (!signedIn) throw NotSignedInFailure();
  if (options.json) return kDone;
  PrintText(document, state.lastQuery, std::time(nullptr));
  if (options.refresh && !refreshed) {
    std::fputs("varnkivo: the stored profile is less than 5 minutes old and was not asked for again\n", stderr);
  }
  return kDone;
}

}  // namespace

void AddAccountShow(Verb account, Invocation& call) {
  auto options = std::make_shared<ShowOptions>();
  const Verb show = account.AddVerb(call, "show", "Show the stored profile; asks nobody without --refresh",
                                    "varnkivo account show --refresh");
  show.Flag("--refresh", options->refresh, "Ask the account centre first, unless it was asked within 5 minutes");
  show.Flag("--show-secrets", options->showSecrets, "Print the auth key too");
  show.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunShow(*options); };
  });
}

}  // namespace kivotool
