// Turns an answer and the fault that strikes it into what to send and when: pure, so that no socket has to know faults.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "sim/fault.h"
#include "sim/message.h"

namespace kivosim {

struct ResponsePlan {
  struct Piece {
    std::chrono::milliseconds pause;  ///< before it
    std::string bytes;
  };
  std::vector<Piece> pieces;
  std::string endless;  ///< not empty: sent over and over after the pieces
  End end = End::kNormal;
  bool closes = false;  ///< with kNormal: close properly instead of waiting for another request
  int status = 0;       ///< of what is really sent; 0 when that is not even a status line
};

/// `clientCloses`: the client asked for the connection to end with this answer.
ResponsePlan PlanResponse(const Response& response, const std::optional<Fault>& fault, bool clientCloses);

}  // namespace kivosim
