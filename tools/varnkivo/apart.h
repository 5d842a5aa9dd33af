// Work of the library that an interruption must be able to undo.
#pragma once

#include <functional>

namespace kivotool {

/// Runs `work` in a process of its own; what it throws is thrown here, a KivoException as one. An interruption ends
/// that process first and then the tool, with `undo` in between: a signal handler could not call the library.
void RunApart(const std::function<void()>& work, const std::function<void()>& undo);

}  // namespace kivotool
