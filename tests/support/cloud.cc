// Starts the simulator once per program: the CA that the library trusts stays the same for all tests.
#include "cloud.h"

namespace testsupport {

Cloud::Cloud() { Sim().Reset(); }

Cloud::~Cloud() { Sim().Reset(); }

kivosim::Simulator& Cloud::Sim() {
  static kivosim::Simulator* const simulator = [] {
    kivosim::Options options;
    options.plainHttp = true;
    auto* made = new kivosim::Simulator(options);  // lives as long as the process
    made->Start();
    return made;
  }();
  return *simulator;
}

void Cloud::AnswerAll(int status, const std::string& body) {
  Sim().SetHook([=](const kivosim::Request&) { return kivosim::Response{status, body}; });
}

}  // namespace testsupport
