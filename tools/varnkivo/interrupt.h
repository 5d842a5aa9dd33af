// What Ctrl-C, SIGTERM and SIGHUP do: undo what the tool did to the terminal, say so, end with 130.
// The state is process-wide, because a signal handler has nothing else to hold on to.
#pragma once

#include <signal.h>
#include <termios.h>

#include <string>

namespace kivotool {

/// Installs the handlers. `message` is what stderr shows on a signal.
void CatchInterrupts(const std::string& message);

/// While one is alive the echo of `terminal` is off. A signal, too, turns it on again.
class EchoOff {
 public:
  explicit EchoOff(int terminal);
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;
  ~EchoOff();
};

/// While one is alive the signals wait. At its end they strike.
class InterruptsHeld {
 public:
  InterruptsHeld();
  InterruptsHeld(const InterruptsHeld&) = delete;
  InterruptsHeld& operator=(const InterruptsHeld&) = delete;
  ~InterruptsHeld();

  int Descriptor() const { return descriptor_; }  ///< readable once one has come; never to be read
  void ReleaseInChild() const;                    ///< for a child that has been forked meanwhile

 private:
  sigset_t before_;
  int descriptor_;
};

/// The process that draws the spinner, to be ended before the message is shown; 0: none.
void SetDrawingProcess(int pid);

}  // namespace kivotool
