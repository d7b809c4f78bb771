// A long output is synced in stretches on a thread of its own while it is
// written: the file still holds exactly what was written, a sync that fails
// along the way fails the file, and a descriptor that cannot be synced (a
// pipe) is no error.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "atomic_file.h"
#include "stretch_sync.h"
#include "temp_dir.h"

namespace {

TEST(StretchSync, SyncsARegularFileWithoutError) {
    temp_dir d;
    const int fd = ::open(d.file("f").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    StretchSync sync(fd);
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(::write(fd, "abc", 3), 3);
        sync.more_written();
    }
    EXPECT_EQ(sync.finish(), 0);
    EXPECT_EQ(sync.finish(), 0); // a second finish is harmless
    ::close(fd);
    EXPECT_EQ(d.read("f"), "abcabcabcabcabc");
}

TEST(StretchSync, APipeCannotBeSyncedAndIsNoError) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    StretchSync sync(fds[1]);
    sync.more_written();
    sync.more_written();
    EXPECT_EQ(sync.finish(), 0);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(StretchSync, AFailedSyncIsReportedByFinish) {
    // A descriptor that is not open stands for a disk that fails: fdatasync
    // gives EBADF, and finish() reports it.
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::close(fds[0]);
    ::close(fds[1]);
    // What is still unsynced when finish() comes is left to the owner's final
    // fsync, so the thread must have had time to run its sync first.
    int error = 0;
    for (int attempt = 1; attempt <= 20 && error == 0; ++attempt) {
        StretchSync sync(fds[1]);
        sync.more_written();
        std::this_thread::sleep_for(std::chrono::milliseconds(5 * attempt));
        error = sync.finish();
    }
    EXPECT_EQ(error, EBADF);
}

TEST(StretchSync, DestroyedWithoutFinishEndsItsThread) {
    temp_dir d;
    const int fd = ::open(d.file("f").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    {
        StretchSync sync(fd);
        sync.more_written();
    }
    ::close(fd);
}

TEST(AtomicFile, ALongFileSyncedInStretchesHoldsEveryByte) {
    temp_dir d;
    // Several stretches of a few MiB and a tail, in pieces of odd sizes.
    std::string expected;
    AtomicFile f;
    ASSERT_TRUE(f.open(d.file("long")));
    for (int i = 0; expected.size() < (std::size_t{13} << 20) + 12345; ++i) {
        const std::string piece(100000 + i % 7, static_cast<char>('a' + i % 26));
        ASSERT_TRUE(f.write(piece.data(), piece.size()));
        expected += piece;
    }
    ASSERT_TRUE(f.commit());
    EXPECT_TRUE(d.read("long") == expected);
}

TEST(AtomicFile, ALongFileAbortedWhileSyncingLeavesNothing) {
    temp_dir d;
    {
        AtomicFile f;
        ASSERT_TRUE(f.open(d.file("long")));
        const std::string piece(std::size_t{1} << 20, 'x');
        for (int i = 0; i < 9; ++i)
            ASSERT_TRUE(f.write(piece.data(), piece.size()));
        f.abort();
    }
    EXPECT_FALSE(std::filesystem::exists(d.file("long")));
    EXPECT_TRUE(std::filesystem::is_empty(d.path));
}

} // namespace
