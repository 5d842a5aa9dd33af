// What must hold for every input. A broken property ends the fuzzer, which keeps the input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

inline void Require(bool holds, const char* property, const std::string& shown = "") {
  if (holds) return;
  std::fprintf(stderr, "broken: %s: \"%s\"\n", property, shown.c_str());
  std::abort();
}
