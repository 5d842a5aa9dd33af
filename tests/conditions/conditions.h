// A process for each condition, beside one simulator: what a test does to a process ends with it.
#pragma once

#include "cloud.h"
#include "process.h"

namespace conditions {

using namespace testsupport;

constexpr char kEmail[] = "ann@example.com", kPassword[] = "correct horse", kUserId[] = "1001";
constexpr char kFolder[] = "/usr/varn/etc/varnholt-account/private/";
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOwnMemory = false;  // the memory is the sanitizer's
constexpr int kTimes = 1;
#else
constexpr bool kOwnMemory = true;
constexpr int kTimes = 5;
#endif

/// The cloud, which knows Ann, as new.
kivosim::Simulator& FreshCloud();
/// "RESULT CODE" of one call of each: login, query that asks the server, record set, removal.
std::string Login();
std::string Query();
std::string Set();
std::string Remove();

/// What many calls have left behind: "0 failed, descriptors +0, memory flat".
std::string Soak(int times, const std::function<bool()>& succeeds);

}  // namespace conditions
