// What an account has bought in the shop. Plain data.
#pragma once

#include <string>
#include <vector>

namespace kivosim {

struct Purchase {
  std::string createAt;  ///< "2026-01-17 08:12:40"
  std::string app;
  std::string paypalId;  ///< of the buyer
  std::string transactionId;
  std::string model, serial;  ///< of the device it was bought on
  double price = 0;
  std::string payStatus = "Completed";
};

/// Four, over two years, of three applications and from two devices.
std::vector<Purchase> ExamplePurchases();

}  // namespace kivosim
