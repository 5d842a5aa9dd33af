// The verbs below `account`.
#pragma once

#include "command_line.h"

namespace kivotool {

void AddAccountShow(Verb account, Invocation& call);
void AddAccountRegister(Verb account, Invocation& call);
void AddAccountSet(Verb account, Invocation& call);
void AddAccountPassword(Verb account, Invocation& call);

}  // namespace kivotool
