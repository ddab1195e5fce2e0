#include "engine/blob_store.h"

#include "tests/engine/engine_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

const std::string hash(64, 'a');

class BlobStoreFolders : public EngineTest {
 protected:
  TestClock clock_;
};

TEST_F(BlobStoreFolders, NameBlobsByTheirHashAndPartialOnesWithAnEnding) {
  const std::wstring name(64, L'a');
  EXPECT_EQ(store_.blob_path(hash), staging(L"blobs\\" + name));
  EXPECT_EQ(store_.partial_path(hash), staging(L"dl\\" + name + L".part"));
}

TEST_F(BlobStoreFolders, AreMadeWithTheirParents) {
  const BlobStore store(folder_ / L"other\\dl", folder_ / L"other\\blobs");
  store.create_folders();
  EXPECT_TRUE(is_folder(folder_ / L"other\\dl"));
  EXPECT_TRUE(is_folder(folder_ / L"other\\blobs"));
}

TEST_F(BlobStoreFolders, CountStagedBytesByFileSizesAlone) {
  struct Case {
    int finished;  // bytes of the finished blob, -1 for none
    int partial;
    uint64_t staged;  // of a blob of 10 bytes
  };
  for (const Case& c : {Case{-1, -1, 0}, Case{10, -1, 10}, Case{10, 4, 10}, Case{9, -1, 0}, Case{11, -1, 0},
                        Case{11, 4, 4}, Case{-1, 4, 4}, Case{-1, 0, 0}, Case{-1, 10, 10}, Case{-1, 11, 0}}) {
    store_.clear_staging();
    if (c.finished >= 0) write_text(store_.blob_path(hash), std::string(static_cast<size_t>(c.finished), 'x'));
    if (c.partial >= 0) write_text(store_.partial_path(hash), std::string(static_cast<size_t>(c.partial), 'x'));
    EXPECT_EQ(store_.staged_bytes(hash, 10), c.staged) << c.finished << " finished, " << c.partial << " partial";
    EXPECT_EQ(store_.has_blob(hash, 10), c.finished == 10) << c.finished;
    store_.take_stock();
    EXPECT_EQ(store_.staged_bytes(hash, 10), c.staged) << c.finished << " finished, " << c.partial << " partial";
    EXPECT_EQ(store_.has_blob(hash, 10), c.finished == 10) << c.finished;
  }
}

TEST_F(BlobStoreFolders, AreNotAskedAgainAfterTakingStock) {
  const std::string late(64, 'b');
  write_text(store_.blob_path(hash), "0123456789");
  store_.take_stock();
  write_text(store_.blob_path(late), "0123456789");
  write_text(store_.partial_path(late), "01234");
  EXPECT_TRUE(store_.has_blob(hash, 10));
  EXPECT_FALSE(store_.has_blob(late, 10));
  EXPECT_EQ(store_.staged_bytes(late, 10), 0U);
  store_.take_stock();
  EXPECT_TRUE(store_.has_blob(late, 10));
  store_.clear_staging();
  EXPECT_FALSE(store_.has_blob(late, 10));
  write_text(store_.partial_path(late), "01234");
  EXPECT_EQ(store_.staged_bytes(late, 10), 5U);
}

TEST_F(BlobStoreFolders, DoNotCountAFolderAsABlob) {
  make_folder(store_.blob_path(hash));
  EXPECT_FALSE(store_.has_blob(hash, 0));
  store_.take_stock();
  EXPECT_FALSE(store_.has_blob(hash, 0));
}

TEST_F(BlobStoreFolders, AreEmptiedWithoutTouchingAnythingElse) {
  write_text(staging(L"hashcache.txt"), "cache");
  write_text(staging(L"state.txt"), "state");
  write_text(store_.blob_path(hash), "0123456789");
  write_text(store_.partial_path(hash), "01234");
  write_text(store_.partial_path(std::string(64, 'b')), "read-only");
  make_read_only(store_.partial_path(std::string(64, 'b')));
  store_.clear_staging();
  EXPECT_EQ(store_.staged_bytes(hash, 10), 0U);
  EXPECT_TRUE(list_folder(staging(L"dl")).empty());
  EXPECT_TRUE(list_folder(staging(L"blobs")).empty());
  EXPECT_TRUE(is_folder(staging(L"dl")));
  EXPECT_TRUE(is_folder(staging(L"blobs")));
  EXPECT_EQ(read_text(staging(L"hashcache.txt")), "cache");
  EXPECT_EQ(read_text(staging(L"state.txt")), "state");
}

TEST_F(BlobStoreFolders, KeepOnlyWhatCannotBeDeletedWhenEmptied) {
  write_text(store_.partial_path(hash), "held");
  write_text(store_.partial_path(std::string(64, 'b')), "free");
  write_text(store_.blob_path(hash), "free");
  const FileLock lock(store_.partial_path(hash));
  store_.clear_staging();
  EXPECT_THAT(list_folder(staging(L"dl")), testing::ElementsAre(std::wstring(64, L'a') + L".part"));
  EXPECT_TRUE(list_folder(staging(L"blobs")).empty());
}

TEST_F(BlobStoreFolders, KeepWhatIsLeftAtAStop) {
  for (const char* name : {"a", "b"}) {
    write_text(store_.partial_path(name), "x");
    write_text(store_.blob_path(name), "x");
  }
  const FileLock lock(store_.partial_path("a"));
  const FileLock second_lock(store_.partial_path("b"));
  clock_.on_sleep([&](uint32_t) { ui_.cancel_requested = true; });
  store_.clear_staging(&stop_);
  EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(100U, 150U));  // of the first file alone
  EXPECT_EQ(list_folder(staging(L"dl")).size(), 2U);
  EXPECT_EQ(list_folder(staging(L"blobs")).size(), 2U);
  store_.clear_staging(&stop_);
  EXPECT_EQ(list_folder(staging(L"blobs")).size(), 2U);
}

}  // namespace
}  // namespace kvx::test
