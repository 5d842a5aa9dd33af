// Work of the library that an interruption must be able to undo, or that must not take for ever.
#pragma once

#include <functional>
#include <string>

namespace kivotool {

/// Runs `work` in a process of its own and gives back the text that it returns; what it throws is thrown here, a
/// KivoException as one. An interruption ends that process first and then the tool, with `undo` in between: a signal
/// handler could not call the library. After `limitSeconds` (0: none) the process is ended, with all that it has
/// started, and TakesTooLong is thrown.
std::string RunApart(const std::function<std::string()>& work, const std::function<void()>& undo, int limitSeconds = 0);

struct TakesTooLong {};

}  // namespace kivotool
