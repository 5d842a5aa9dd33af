// The example purchases. No two share a transaction id, and each filter of the history parts them in another way.
#include "sim/purchase.h"

namespace kivosim {

std::vector<Purchase> ExamplePurchases() {
  return {{"2025-03-02 19:45:10", "photos", "ann.buys", "T-0001", "LU-420", "2130KVN004211", 4.99},
          {"2025-11-30 07:01:33", "songbook", "ann.buys", "T-0002", "LU-420", "2130KVN004211", 9.99},
          {"2026-01-17 08:12:40", "photos", "ann.buys", "T-0003", "LU-220", "1980KVN000017", 4.99, "Refunded"},
          {"2026-06-08 22:30:05", "pulsewatch", "family.purse", "T-0004", "LU-420", "2130KVN004211", 12.5}};
}

}  // namespace kivosim
