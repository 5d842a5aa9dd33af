// The cloud, in a process of its own: the one that traces must have no threads, and a cloud that is traced would be
// stopped with its client. Ends with the process that made it.
#pragma once

#include <string>

#include "sim/simulator.h"

namespace faults {

constexpr char kSerial[] = "2040VKN000001", kUserId[] = "1001", kAuthKey[] = "AuthKey-0123456789-of-ann";
constexpr char kEmail[] = "ann@example.com", kPassword[] = "correct horse battery";

/// Trusted from then on, and nobody else: with one CA in the system's bundle a request costs a tenth.
void StartCloud();

/// Something done in that process, with a text to and one from it.
using Work = std::string (*)(kivosim::Simulator& cloud, const std::string& text);
std::string InCloud(Work work, const std::string& text = "");
/// Work: as new, with Ann's account and the auth key above, no API key seen.
std::string ResetCloud(kivosim::Simulator& cloud, const std::string&);

}  // namespace faults
