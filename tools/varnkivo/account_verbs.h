// The verbs below `account`.
#pragma once

#include "command_line.h"

namespace kivotool {

void AddAccountShow(CLI::App& account, Invocation& call);
void AddAccountRegister(CLI::App& account, Invocation& call);
void AddAccountSet(CLI::App& account, Invocation& call);
void AddAccountPassword(CLI::App& account, Invocation& call);

}  // namespace kivotool
