// Operations on tokens, and what they find. What prepares runs in the cloud's process: tokens are its to give.
#pragma once

#include <string>

#include "sim/simulator.h"

namespace faults {

constexpr char kVerifier[] = "verifier-0123456789-0123456789-0123456789-01";

std::string PreparePkceLogin(kivosim::Simulator& cloud, const std::string&);  ///< two codes, a line each
std::string PrepareRenewal(kivosim::Simulator& cloud, const std::string&);    ///< an expired token
std::string PrepareRescue(kivosim::Simulator& cloud, const std::string&);     ///< the same, revoked
/// A good token, that of another client, and a report job.
std::string PrepareLogout(kivosim::Simulator& cloud, const std::string&);

/// An expired token, a report job, and an account centre that accepts every report.
std::string PrepareReport(kivosim::Simulator& cloud, const std::string&);
/// As for a sign-out, and an account centre that refuses every report.
std::string PrepareRefusedReport(kivosim::Simulator& cloud, const std::string&);
std::string PreparePackage(kivosim::Simulator& cloud, const std::string&);  ///< a good token of the device
/// An account centre that registers everybody, also twice.
std::string PrepareRegistration(kivosim::Simulator& cloud, const std::string&);

/// The code that PkceLogin trades.
void UseLine(const std::string& line);
int PkceLogin();
int GetToken();
int GetPackageToken();
int Logout();
int Report();
int RefusedReport();  ///< 0 when it was refused, or when nobody is signed in
/// The cloud refuses a device that it has forgotten; what is left to do then needs nobody's leave.
int LogoutAgain();
int LogoutLocally();

/// "yes" while the cloud knows the device's auth key.
std::string KnowsDevice(kivosim::Simulator& cloud, const std::string&);
/// "yes" when `refreshToken` is the present one of a family that is not revoked: the set it came with is good.
std::string IsPresent(kivosim::Simulator& cloud, const std::string& refreshToken);

}  // namespace faults
