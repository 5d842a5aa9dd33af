// The pieces of a request for an authorization code. Touches nothing.
#include "authorization_request.h"

#include "kivo_exception.h"
#include "varn/platform.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <string.h>

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
  std::vector<std::string> words;
  try {
    boost::algorithm::split(words, scope, boost::algorithm::is_any_of(" "));
  } catch (const std::exception&) {
    throw KivoException(KIVO_ERR_BAD_PARAM, "Failed to split scope: " + scope);
  }
  for (const std::string& word : words)
    if (!word.empty()) form.emplace_back("scopes[]", word);
}

}  // namespace varnkivo
