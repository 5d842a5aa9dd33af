// varnkivo-sim: the cloud on this machine, as a program. Standard output carries the one ready line and nothing else;
// exit status 0 after SIGTERM or SIGINT, 1 when it cannot start, 2 for a wrong command line.
#include <signal.h>

#include <cstdio>
#include <exception>

#include "sim/control.h"
#include "sim/json_text.h"
#include "sim/program/arguments.h"
#include "sim/program/ca_file.h"

namespace {

using namespace kivosim;

void AddAccounts(Simulator& simulator, const Arguments& arguments) {
  for (const Account& account : arguments.accounts) simulator.AddAccount(account);
}

void SayReady(const Simulator& simulator, const Control& control, const CaFile& ca, const Arguments& arguments) {
  Json::Value line;
  line["ready"] = true;
  line["port"] = simulator.Port();
  line["control"] = control.Url();
  line["ca"] = ca.Path();
  line["accounts"] = Json::Value(Json::arrayValue);
  for (const Account& account : arguments.accounts) line["accounts"].append(account.email);
  std::printf("%s\n", JsonText(line).c_str());
  std::fflush(stdout);
}

void Serve(const Arguments& arguments, const sigset_t& ending) {
  Simulator simulator(arguments.options);
  AddAccounts(simulator, arguments);
  simulator.Start();
  const Control control(simulator, arguments.controlPort, [&] { AddAccounts(simulator, arguments); });
  const CaFile ca(simulator.CaPem());
  SayReady(simulator, control, ca, arguments);
  int signal = 0;
  sigwait(&ending, &signal);
}

}  // namespace

int main(int argc, char** argv) {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  sigprocmask(SIG_BLOCK, &ending, nullptr);  // before any thread is made: they all inherit it
  signal(SIGPIPE, SIG_IGN);
  try {
    Serve(ReadArguments(argc, argv), ending);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "varnkivo-sim: %s\n", error.what());
    return 1;
  }
}
