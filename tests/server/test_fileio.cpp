// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXASyncFileIo.h"
#include "server/KRXSyncFileIo.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/tempdir.h"
#include "util/SRThreadPool.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <future>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace krx::test {
namespace {

constexpr int kCreate = O_RDWR | O_CREAT;

/// An adaptor over the plain calls that completes at once or on a pool's threads.
class Adaptor : public IKrxFileAdaptor
{
public:
    explicit Adaptor(SRThreadPool* pool = nullptr) : m_pool(pool) {}

    bool open(const char* path, int flags, int mode, struct stat64* status, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.open(wide(path), flags, mode, status); });
    }
    bool close(int fd, bool wait, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.close(fd, wait); });
    }
    bool read(int fd, long long offset, void* buffer, unsigned n, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.read(fd, offset, buffer, n); });
    }
    bool write(int fd, long long offset, const void* buffer, unsigned n, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.write(fd, offset, const_cast<void*>(buffer), n); });
    }
    bool fstat(int fd, struct stat64* status, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.fstat(fd, status, IKrxFileIo::kAny); });
    }
    bool stat(const char* path, struct stat64* status, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.stat(wide(path), status, IKrxFileIo::kAny); });
    }
    bool remove(const char* path, RemoveFlags flags, bool wait, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.remove(wide(path), flags, wait); });
    }
    bool createDir(const char* path, ICompletion& done) override
    {
        return take(done, [=, this] { return m_io.createDir(wide(path)); });
    }
    bool readDir(const char* pattern, std::vector<std::string>& names, ICompletion& done) override
    {
        return take(done, [=, this, &names] {
            std::vector<SRString> found;
            const int result = m_io.readDir(wide(pattern), found);
            for (const SRString& name : found)
                names.emplace_back(name.toMultiByte().view());
            return result;
        });
    }

private:
    static SRString wide(const char* path) { return SRString::fromMultiByte(path); }

    template <typename Call>
    bool take(ICompletion& done, Call call)
    {
        const auto job = [call, &done] { done.complete(call(), 0); };
        if (m_pool)
            return m_pool->post(job);
        job();
        return true;
    }

    SRThreadPool* const m_pool;
    SimpleKrxSyncFileIo m_io;
};

/// The same cases for each way to the files.
struct Ways
{
    SRThreadPool pool{3};
    Adaptor direct;
    Adaptor threaded{&pool};
    SimpleKrxSyncFileIo simple;
    SimpleKrxASyncFileIo async{&pool, util::kVerboseNone};
    CustomKrxSyncFileIo custom{&direct, nullptr, {}};
    CustomKrxSyncFileIo customThreaded{&threaded, nullptr, {}};
    std::array<IKrxFileIo*, 4> all{&simple, &async, &custom, &customThreaded};
};

TEST(FileIo, ReadsAndWritesAtPositions)
{
    Ways ways;
    for (IKrxFileIo* io : ways.all) {
        const TempDir dir;
        struct stat64 st;
        const int fd = io->open(dir.file("f"), kCreate, 0x100, &st);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(st.st_size, 0);
        EXPECT_EQ(st.st_mode & 0777, 0444U);
        std::string text = "abcdef";
        EXPECT_EQ(io->write(fd, 4294967296, text.data(), 6), 6);
        EXPECT_EQ(io->write(fd, 0, text.data(), 2), 2);
        char buffer[10] = {};
        EXPECT_EQ(io->read(fd, 4294967298, buffer, 10), 4);
        EXPECT_STREQ(buffer, "cdef");
        EXPECT_EQ(io->read(fd, 4294967302, buffer, 10), 0);
        EXPECT_EQ(io->read(fd, 0, buffer, 3), 3);
        EXPECT_EQ(std::string(buffer, 3), std::string("ab\0", 3));
        EXPECT_EQ(io->fstat(fd, &st, IKrxFileIo::kFile), 0);
        EXPECT_EQ(st.st_size, 4294967302);
        EXPECT_EQ(io->fstat(fd, &st, IKrxFileIo::kDirectory), -1);
        EXPECT_LT(io->read(fd, -1, buffer, 1), 0);
        EXPECT_LT(io->write(fd, -1, buffer, 1), 0);
        EXPECT_EQ(io->read(-7, 0, buffer, 1), -7);
        EXPECT_EQ(io->write(-7, 0, buffer, 1), -7);
        EXPECT_EQ(io->fstat(-7, &st, IKrxFileIo::kAny), -7);
        EXPECT_EQ(io->close(fd, true), 0);
        EXPECT_LT(io->close(fd, true), 0);
        EXPECT_LT(io->open(dir.file("absent"), O_RDONLY, 0, &st), 0);
        AssertRecorder asserts;
        EXPECT_EQ(io->read(0, 0, nullptr, 1), -1);
        EXPECT_EQ(io->write(0, 0, nullptr, 1), -1);
        EXPECT_EQ(io->stat(dir.file("f"), nullptr, IKrxFileIo::kAny), -1);
        EXPECT_EQ(asserts.take().size(), 3U);
    }
}

TEST(FileIo, KnowsDirectories)
{
    Ways ways;
    for (IKrxFileIo* io : ways.all) {
        const TempDir dir;
        struct stat64 st;
        EXPECT_EQ(io->createDir(dir.file("a/b/c")), 0);
        dir.write("a/b/x.idx", "x");
        dir.write("a/b/y.idx.bak", "y");
        dir.write("a/b/zidx", "z");
        EXPECT_LT(io->createDir(dir.file("a/b/zidx/d")), 0);
        const std::tuple<const char*, IKrxFileIo::Mode, int> cases[] = {
            {"a", IKrxFileIo::kFile, -1},        {"a", IKrxFileIo::kDirectory, 0},
            {"a/b/x.idx", IKrxFileIo::kFile, 0}, {"a/b/x.idx", IKrxFileIo::kDirectory, -1},
            {"a", IKrxFileIo::kAny, 0},          {"absent", IKrxFileIo::kAny, -1},
        };
        for (const auto& [path, mode, result] : cases)
            EXPECT_EQ(io->stat(dir.file(path), &st, mode), result) << path << " " << mode;
        std::vector<SRString> names;
        EXPECT_EQ(io->readDir(dir.file("a/b/?.i*x"), names), 0);
        EXPECT_EQ(names, std::vector<SRString>{L"x.idx"});
        EXPECT_EQ(io->readDir(dir.file("absent/*"), names), -1);

        AssertRecorder asserts;
        EXPECT_EQ(io->remove(dir.file("a"), static_cast<IKrxFileAdaptor::RemoveFlags>(2), true), -1);
        EXPECT_EQ(asserts.take().size(), 1U);
        EXPECT_EQ(io->remove(dir.file("a/b"), IKrxFileAdaptor::kRemoveEmptyDir, true), -1);
        EXPECT_EQ(io->remove(dir.file("a/b"), IKrxFileAdaptor::kRemoveFile, true), -1);
        EXPECT_EQ(io->remove(dir.file("a/b/x.idx"), IKrxFileAdaptor::kRemoveFile, true), 0);
        EXPECT_EQ(io->remove(dir.file("a/b/c"), IKrxFileAdaptor::kRemoveEmptyDir, true), 0);
        EXPECT_EQ(io->remove(dir.file("a"), IKrxFileAdaptor::kRemoveDirRecursive, true), 0);
        EXPECT_LT(io->stat(dir.file("a"), &st, IKrxFileIo::kAny), 0);
    }
}

TEST(ASyncFileIo, ServesManyThreadsAndItsOwn)
{
    Ways ways;
    const TempDir dir;
    for (IKrxFileIo* io : {ways.all[1], ways.all[3]}) {
        const int fd = io->open(dir.file("shared"), kCreate, 0600, nullptr);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([io, fd, t] {
                for (int i = 0; i < 100; ++i) {
                    const long long offset = (t * 100 + i) * 4LL;
                    int value = t * 1000 + i;
                    int back = 0;
                    EXPECT_EQ(io->write(fd, offset, &value, sizeof value), 4);
                    EXPECT_EQ(io->read(fd, offset, &back, sizeof back), 4);
                    EXPECT_EQ(back, value);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(io->close(fd, true), 0);
    }
    // A pool thread that waited for its own pool would wait for ever.
    SRThreadPool one(1);
    SimpleKrxASyncFileIo io(&one, util::kVerboseNone);
    std::promise<int> answer;
    one.post([&] {
        struct stat64 st;
        answer.set_value(one.isPoolThread() ? io.stat(dir.file("shared"), &st, IKrxFileIo::kFile) : -1);
    });
    EXPECT_EQ(answer.get_future().get(), 0);
    EXPECT_FALSE(one.isPoolThread());
    errno = 0;
    EXPECT_LT(io.open(dir.file("absent"), O_RDONLY, 0, nullptr), 0);
    EXPECT_EQ(errno, ENOENT);
    one.close();
    EXPECT_EQ(io.open(dir.file("shared"), O_RDONLY, 0, nullptr), -1);
    testing::internal::CaptureStderr();
    SimpleKrxASyncFileIo(&one, util::kVerboseFailures).close(0, true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "close failed: -1\n");
}

}  // namespace
}  // namespace krx::test
