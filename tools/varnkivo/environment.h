// What the tool does to its own environment before it touches the library.
#pragma once

namespace kivotool {

/// Where the process has more rights than its user (real and effective ids differ), the variables that would let that
/// user read or redirect the device's traffic are dropped.
void DropUntrustedEnvironment();

}  // namespace kivotool
