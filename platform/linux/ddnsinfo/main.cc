// varnddnsinfo: which account and host name this device's dynamic DNS is set up with, for programs that ask. Reads its
// configuration and touches nothing. The value goes out without a newline: callers take all of the output for it.
#include <varn/platform.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kConfig[] = "/usr/varn/etc/ddns.conf";
constexpr int kDone = 0, kFailed = 1, kUsage = 2;

constexpr struct {
  const char *option, *key;
} kQuestions[] = {{"--get-varn-account", "varn_account"}, {"--get-varn-hostname", "varn_hostname"}};

int Fail(const char* why) {
  std::fprintf(stderr, "varnddnsinfo: %s: %s\n", kConfig, why);
  return kFailed;
}

int PrintValue(const char* key) {
  std::FILE* const file = std::fopen(kConfig, "re");
  if (!file) return errno == ENOENT || errno == ENOTDIR ? kDone : Fail(std::strerror(errno));
  std::fclose(file);
  char value[1024] = {};
  if (VLIBCFileGetKeyValue(kConfig, key, value, sizeof value) < 0) return Fail("cannot be read");
  const bool isOut = std::fputs(value, stdout) >= 0 && std::fflush(stdout) == 0;
  return isOut ? kDone : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  for (const auto& question : kQuestions)
    if (argc == 2 && std::strcmp(argv[1], question.option) == 0) return PrintValue(question.key);
  std::fputs("usage: varnddnsinfo --get-varn-account | --get-varn-hostname\n", stderr);
  return kUsage;
}
