// What the programs ask of the cloud, so that only the way to send it differs: a signed-in account's profile, from the
// device that the sandbox sets up, or a renewal of its tokens.
#ifndef VARNKIVO_BENCH_PROGRAMS_REQUEST_H_
#define VARNKIVO_BENCH_PROGRAMS_REQUEST_H_

namespace bench {

constexpr const char* kHost = "https://account.kivo.example";
constexpr const char* kPath = "device/api/user/query";
constexpr const char *kUserId = "1001", *kAuthKey = "bench0123456789abcdef", *kSerial = "2040VKN000001";
constexpr const char* kParameters[][2] = {{"id", kUserId}, {"auth_key", kAuthKey}, {"serial_no", kSerial}};

constexpr const char* kTokenEndpoint = "https://identity.kivo.example/oauth2/token";
constexpr const char* kClientId = "kivo-device";

}  // namespace bench

#endif  // VARNKIVO_BENCH_PROGRAMS_REQUEST_H_
