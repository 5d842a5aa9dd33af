// The pieces of a request for an authorization code. Touches nothing.
#include "authorization_request.h"

#include "kivo_exception.h"
#include "varn/platform.h"

#include <string.h>

#include <algorithm>

namespace varnkivo {
namespace {

constexpr int kPkceSize = 44;

}  // namespace

PkcePair NewPkcePair() {
  char challenge[kPkceSize] = {}, verifier[kPkceSize] = {};
  if (varn_challenge_verifier_no_save(challenge, kPkceSize, verifier, kPkceSize) < 0)
    throw KivoException(KIVO_ERR_SYSTEM, "Failed to get code challenge & verifier");
  PkcePair pair{challenge, verifier};
  explicit_bzero(verifier, sizeof verifier);
  return pair;
}

void AddScopes(Pairs& form, const std::string& scope) {
  try {
    for (std::size_t begin = 0, end; begin < scope.size(); begin = end + 1) {
      end = std::min(scope.find(' ', begin), scope.size());
      if (end > begin) form.emplace_back("scopes[]", scope.substr(begin, end - begin));
    }
  } catch (const std::exception&) {
    throw KivoException(KIVO_ERR_BAD_PARAM, "Failed to split scope: " + scope);
  }
}

}  // namespace varnkivo
