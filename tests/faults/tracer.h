// Runs a piece of work in a child, sees every system call of it and of what it starts, and puts one fault in.
// The work says with StopHere() where the part that matters begins and ends; nothing outside of it is counted or
// struck. One tracer at a time, in a process without threads: it waits for any child.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>

#include "calls.h"

namespace faults {

/// Begins and ends the part that matters; `self` is the caller's process id.
void StopHere(pid_t self);

struct Ending {
  bool reached = false;  // the fault was put in
  bool hung = false;     // ended by the tracer after 10 s
  bool left = false;     // children, living or not, when the work came to its end
  int status = 0;        // wait status of the child
  int descriptors = 0;   // open when the work came to its end
  bool keptIds = false;  // the call that was refused would have put the ids back
};

/// Called before (`done` false) and after each system call; `second` is its second argument.
using Watch = std::function<void(const Point& point, std::uint64_t second, bool done)>;

/// A program that the work executes is followed, but it is not ours: it is neither counted nor struck.
Ending RunTraced(const std::function<void()>& work, const Injection& injection, const Watch& watch = nullptr);

}  // namespace faults
