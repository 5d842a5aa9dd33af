// A process for each condition, beside one simulator: what a test does to a process ends with it.
#pragma once

#include <functional>
#include <string>

#include "sim/simulator.h"

namespace conditions {

constexpr char kEmail[] = "ann@example.com", kPassword[] = "correct horse", kUserId[] = "1001";
constexpr char kFolder[] = "/usr/varn/etc/varnholt-account/private/";
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";

/// The cloud, which knows Ann, as new.
kivosim::Simulator& FreshCloud();
/// Runs `work` in a child and returns what it returns; how it ended where it did not. It has two minutes.
std::string InChild(const std::function<std::string()>& work);
/// "RESULT CODE" of one call of each: login, query that asks the server, record set, removal.
std::string Login();
std::string Query();
std::string Set();
std::string Remove();
std::string Everything();
constexpr char kEverythingWell[] = "login 0 0, query 0 0, set 0 0, remove 65280, no record";

void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
std::size_t OpenDescriptors();
long ResidentKibibytes();

}  // namespace conditions
