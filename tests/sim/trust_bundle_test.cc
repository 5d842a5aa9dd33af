// Adding a CA to a bundle: it grows once, keeps what was there, and never shows a reader half of it.
#include "sim/trust_bundle.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "sim/simulator.h"

namespace {

const char kFile[] = "/tmp/bundle.pem";

std::string Content() {
  std::ifstream stream(kFile, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

void SetContent(const std::string& text) { std::ofstream(kFile, std::ios::binary) << text; }

std::string Pem() {
  kivosim::Options options;
  options.trustBundle.clear();
  return kivosim::Simulator(options).CaPem();
}

bool Holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

void CheckReplacing() {
  const std::string first = Pem(), second = Pem();
  SetContent("# others\n---\n");
  ASSERT_EQ(0, chmod(kFile, 0640));
  kivosim::TrustInBundle(kFile, first);
  const std::string before = Content();
  EXPECT_EQ(0u, before.find("# others\n---\n"));
  EXPECT_TRUE(Holds(before, "\n" + first));
  std::ofstream(kFile, std::ios::app) << "# added later\n";
  kivosim::TrustInBundle(kFile, second);
  EXPECT_EQ(before.size() + 14, Content().size());
  EXPECT_EQ(0u, Content().find("# others\n---\n"));
  EXPECT_TRUE(Holds(Content(), second) && Holds(Content(), "\n# added later\n"));
  EXPECT_FALSE(Holds(Content(), first));
  struct stat status {};
  ASSERT_EQ(0, stat(kFile, &status));
  EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST(SimTrustBundle, OneBlockIsReplacedByTheNext) {
  CheckReplacing();
  SetContent("no line end");
  kivosim::TrustInBundle(kFile, Pem());
  EXPECT_EQ(0u, Content().find("no line end\n#"));
}

TEST(SimTrustBundle, ABundleThatIsAMountOfItsOwnIsWrittenInPlace) {
  SetContent("");
  ASSERT_EQ(0, mount(kFile, kFile, nullptr, MS_BIND, nullptr));
  CheckReplacing();
  EXPECT_EQ(0, umount(kFile));
}

TEST(SimTrustBundle, ReadersAlwaysFindAWholeFile) {
  const std::string others(200000, '#');
  SetContent(others + "\n");
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

TEST(SimTrustBundle, AFileThatCannotBeWrittenIsNamed) {
  try {
    kivosim::TrustInBundle("/no/such/folder/bundle.pem", Pem());
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_TRUE(Holds(error.what(), "/no/such/folder/bundle.pem")) << error.what();
  }
}

}  // namespace
