// What a client has to know that makes the library's requests without the library.
#ifndef VARNKIVO_BENCH_BARE_CLIENT_H_
#define VARNKIVO_BENCH_BARE_CLIENT_H_

#include <string>
#include <utility>
#include <vector>

namespace bench {

std::string UserAgent();
/// A form body with the device's serial number and token in front, as the sender makes it. Values are escaped already.
std::string DeviceForm(const std::vector<std::pair<std::string, std::string>>& parameters);
/// Of a token set as a token file holds it.
std::string RefreshToken(const std::string& set);

}  // namespace bench

#endif  // VARNKIVO_BENCH_BARE_CLIENT_H_
