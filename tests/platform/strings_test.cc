// Hashes, lists, growing texts, trimming, and the record of the last error.
#include <climits>
#include <cstring>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "test_files.h"

extern "C" int CallPlatformFromC(void);

namespace {

std::string Keys(const VLIBSzHash* hash) {
  VLIBSzList* keys = VLIBCSzListAlloc(0);
  std::string text;
  EXPECT_LE(0, VLIBCSzHashEnumKey(hash, keys));
  for (int i = 0; i < VLIBCSzListCount(keys); ++i) text += std::string(VLIBCSzListGet(keys, i)) + " ";
  VLIBCSzListFree(keys);
  return text;
}

TEST(SzHash, EnumeratesInInsertionOrderAndAReplacedKeyKeepsItsPlace) {
  VLIBSzHash* hash = VLIBCSzHashAlloc(1);
  for (const char* key : {"serial", "id", "auth_key", "", "code"}) EXPECT_EQ(0, VLIBCSzHashSetValue(hash, key, key));
  EXPECT_EQ(0, VLIBCSzHashSetValue(hash, "id", "new"));
  EXPECT_EQ("serial id auth_key  code ", Keys(hash));
  EXPECT_STREQ("new", VLIBCSzHashGetValue(hash, "id"));
  EXPECT_STREQ("", VLIBCSzHashGetValue(hash, ""));
  EXPECT_EQ(nullptr, VLIBCSzHashGetValue(hash, "ID"));
  VLIBCSzHashFree(hash);
}

TEST(SzHash, ValuesStayWhereTheyAreWhileItGrows) {
  for (const int capacity : {INT_MIN, -1, 0, 1024, INT_MAX}) {
    VLIBSzHash* hash = VLIBCSzHashAlloc(capacity);
    ASSERT_NE(nullptr, hash);
    VLIBCSzHashSetValue(hash, "first", "value");
    const char* first = VLIBCSzHashGetValue(hash, "first");
    std::string key = "k";
    for (int i = 0; i < 5000; ++i) {
      key = "k" + std::to_string(i);
      VLIBCSzHashSetValue(hash, key.c_str(), std::to_string(i).c_str());
    }
    key = "overwritten by the caller";
    EXPECT_EQ(first, VLIBCSzHashGetValue(hash, "first"));
    EXPECT_STREQ("value", first);
    EXPECT_STREQ("4999", VLIBCSzHashGetValue(hash, "k4999"));
    VLIBCSzHashFree(hash);
  }
}

TEST(SzList, GivesNullOutsideAndCopiesWhatIsPushed) {
  VLIBSzList* list = VLIBCSzListAlloc(0);
  char text[] = "one";
  EXPECT_EQ(0, VLIBCSzListPush(list, text));
  const char* first = VLIBCSzListGet(list, 0);
  text[0] = 'X';
  for (int i = 0; i < 1000; ++i) VLIBCSzListPush(list, "more");
  EXPECT_STREQ("one", first);
  EXPECT_EQ(1001, VLIBCSzListCount(list));
  for (const int index : {-1, 1001, INT_MIN, INT_MAX}) EXPECT_EQ(nullptr, VLIBCSzListGet(list, index));
  VLIBCSzListFree(list);
  VLIBCSzListFree(nullptr);
  VLIBCSzHashFree(nullptr);
  EXPECT_EQ(0, VLIBCSzListCount(nullptr));
}

TEST(StrCat, AppendsWhateverTheBufferHolds) {
  char* buffer = nullptr;
  int size = 0;
  std::string expected;
  std::mt19937 random(7);
  for (int i = 0; i < 300; ++i) {
    const std::string piece(random() % 90, static_cast<char>('a' + i % 26));
    ASSERT_EQ(0, VLIBCStrCat(&buffer, &size, piece.c_str()));
    expected += piece;
    ASSERT_STREQ(expected.c_str(), buffer);
    ASSERT_LT(expected.size(), static_cast<std::size_t>(size));
  }
  for (int i = 0; i < 3; ++i) {  // with itself: with and without room
    ASSERT_EQ(0, VLIBCStrCat(&buffer, &size, buffer));
    expected += expected;
    ASSERT_EQ(expected, buffer);
  }
  std::free(buffer);
}

TEST(StrCat, FailsWithBufferAndSizeAsTheyWere) {
  char* buffer = static_cast<char*>(std::malloc(4));
  std::memcpy(buffer, "full", 4);  // no NUL within the size
  int size = 4;
  char* const before = buffer;
  EXPECT_GT(0, VLIBCStrCat(&buffer, &size, "x"));
  EXPECT_GT(0, VLIBCStrCat(&buffer, &size, nullptr));
  EXPECT_GT(0, VLIBCStrCat(nullptr, &size, "x"));
  EXPECT_EQ(before, buffer);
  EXPECT_EQ(4, size);
  std::free(buffer);
}

TEST(StrTrimSpace, CutsBothEndsOnly) {
  const struct {
    const char *text, *trimmed;
  } rows[] = {{"", ""}, {" \t\r\n\v\f", ""}, {"a", "a"}, {"\n a b\t ", "a b"}, {"\xc2\xa0x ", "\xc2\xa0x"}};
  for (const auto& row : rows) {
    std::string text = row.text;
    EXPECT_EQ(text.data(), VLIBCStrTrimSpace(text.data()));
    EXPECT_STREQ(row.trimmed, text.c_str());
  }
  EXPECT_EQ(nullptr, VLIBCStrTrimSpace(nullptr));
}

TEST(LastError, BelongsToTheThreadAndNamesItsPlace) {
  std::thread([] {
    EXPECT_EQ(0u, VLIBCErrGet());
    EXPECT_STREQ("", VLIBCErrorGetFile());
    char value[8];
    EXPECT_GT(0, VLIBCFileGetKeyValue("/no/such/file", "key", value, sizeof value));
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NOT_FOUND), VLIBCErrGet());
    EXPECT_STREQ("file_util.cc", VLIBCErrorGetFile());
    EXPECT_LT(0, VLIBCErrorGetLine());
    std::thread([] { EXPECT_EQ(0u, VLIBCErrGet()); }).join();
  }).join();
}

TEST(Header, ServesCPrograms) { EXPECT_EQ(45, CallPlatformFromC()); }

}  // namespace
