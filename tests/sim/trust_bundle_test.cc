// Adding a CA to a bundle: it grows once, keeps what was there, and never shows a reader half of it.
#include "sim/trust_bundle.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "sim/simulator.h"

namespace {

using testing::HasSubstr;

const char kFile[] = "/tmp/bundle.pem";

std::string Content() {
  std::ifstream stream(kFile, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Pem() {
  kivosim::Options options;
  options.trustBundle.clear();
  return kivosim::Simulator(options).CaPem();
}

TEST(SimTrustBundle, OneBlockIsReplacedByTheNextAlsoInAFileThatIsAMount) {
  for (const bool mounted : {false, true}) {
    const std::string first = Pem(), second = Pem();
    std::ofstream(kFile) << "# others";
    ASSERT_EQ(0, chmod(kFile, 0640));
    if (mounted) {
      ASSERT_EQ(0, mount(kFile, kFile, nullptr, MS_BIND, nullptr));
    }
    kivosim::TrustInBundle(kFile, first);
    const std::string before = Content();
    EXPECT_EQ(0u, before.find("# others\n#"));
    EXPECT_THAT(before, HasSubstr("\n" + first));
    std::ofstream(kFile, std::ios::app) << "# added later\n";
    kivosim::TrustInBundle(kFile, second);
    EXPECT_EQ(before.size() + 14, Content().size());
    EXPECT_EQ(0u, Content().find("# others\n#"));
    EXPECT_THAT(Content(), testing::AllOf(HasSubstr(second), HasSubstr("\n# added later\n")));
    struct stat status {};
    ASSERT_EQ(0, stat(kFile, &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
    EXPECT_EQ(mounted ? 0 : -1, umount(kFile));
  }
}

TEST(SimTrustBundle, ReadersAlwaysFindAWholeFile) {
  std::ofstream(kFile) << std::string(200000, '#') << "\n";
  kivosim::TrustInBundle(kFile, Pem());
  const std::size_t size = Content().size();
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 60; ++i) kivosim::TrustInBundle(kFile, Pem());
    done = true;
  });
  int torn = 0;
  while (!done) torn += Content().size() != size;
  writer.join();
  EXPECT_EQ(0, torn);
}

}  // namespace
