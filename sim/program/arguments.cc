// The command line by CLI11, and the accounts it names.
#include "sim/program/arguments.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "sim/account_json.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

const char kSystemBundle[] = "/etc/ssl/certs/ca-certificates.crt";

Account DemoAccount() {
  Account ann{"ann@example.com", "correct horse", "1001"};
  ann.purchases = ExamplePurchases();
  return ann;
}

/// EMAIL:PASSWORD:ID; the password may hold colons.
Account AccountFromText(const std::string& text) {
  const std::size_t first = text.find(':'), last = text.rfind(':');
  if (first == 0 || first == last || last + 1 == text.size())
    throw CLI::ValidationError("--account", "\"" + text + "\" is not EMAIL:PASSWORD:ID");
  return {text.substr(0, first), text.substr(first + 1, last - first - 1), text.substr(last + 1)};
}

std::vector<Account> AccountsFromFile(const std::string& file) {
  std::ifstream stream(file);
  std::ostringstream text;
  text << stream.rdbuf();
  try {
    if (!stream) throw std::runtime_error("cannot be read");
    std::vector<Account> accounts;
    for (const Json::Value& json : ParseJson(text.str())) accounts.push_back(AccountFromJson(json));
    return accounts;
  } catch (const std::exception& error) {
    throw CLI::ValidationError("--accounts", file + ": " + error.what());
  }
}

}  // namespace

Arguments ReadArguments(int argc, char** argv) {
  Arguments arguments;
  arguments.options.trustBundle.clear();
  std::vector<std::string> accounts;
  std::string accountFile;
  CLI::App app(
      "Stands in for the Kivo account, identity and payment hosts on this machine, over HTTPS.\n"
      "Prints one line of JSON when it is ready and serves until SIGTERM or SIGINT.\n"
      "Without --account and --accounts it knows ann@example.com with the password \"correct horse\".",
      "varnkivo-sim");
  app.set_version_flag("--version", "varnkivo-sim " VARNKIVO_SIM_VERSION);
  app.add_option("--address", arguments.options.address, "Address to listen on")->capture_default_str();
  const CLI::Range ports(0, 65535);
  app.add_option("--port", arguments.options.port, "Port of HTTPS, 0 for any free one")
      ->check(ports)
      ->capture_default_str();
  app.add_option("--control-port", arguments.controlPort, "Loopback port of the control interface, 0 for any free one")
      ->check(ports)
      ->capture_default_str();
  CLI::Option* trust = app.add_option("--trust-into", arguments.options.trustBundle,
                                      "Add the CA to this file of trusted CAs, or without FILE to " +
                                          std::string(kSystemBundle) + ". Use it in a sandbox.");
  trust->expected(0, 1)->type_name("[FILE]");
  app.add_option("--account", accounts, "An account it knows; may be repeated")->type_name("EMAIL:PASSWORD:ID");
  app.add_option("--accounts", accountFile, "A JSON list of accounts")->type_name("FILE");
  try {
    app.parse(argc, argv);
    if (trust->count() > 0 && arguments.options.trustBundle.empty()) arguments.options.trustBundle = kSystemBundle;
    for (const std::string& text : accounts) arguments.accounts.push_back(AccountFromText(text));
    if (!accountFile.empty())
      for (Account& account : AccountsFromFile(accountFile)) arguments.accounts.push_back(std::move(account));
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error) == 0 ? 0 : 2);
  }
  if (accounts.empty() && accountFile.empty()) arguments.accounts.push_back(DemoAccount());
  return arguments;
}

}  // namespace kivosim
