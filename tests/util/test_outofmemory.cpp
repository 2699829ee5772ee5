// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "interfaces/IKrxFileIo.h"
#include "tests/support/failingallocations.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"
#include "util/SRFileUtil.h"
#include "util/autofile.h"
#include "util/findfile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <dirent.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace krx::util {
namespace {

/// The real files, of which a write can take less than it was given.
struct RealFileIo : IKrxFileIo
{
    unsigned maxWrite = INT_MAX;

    int open(const SRString& path, int flags, int mode, struct stat64*) override
    {
        return SRFileUtil::open(path, flags, mode);
    }
    int close(int fd, bool) override { return SRFileUtil::close(fd); }
    int read(int fd, long long offset, void* buf, unsigned n) override
    {
        return static_cast<int>(::pread64(fd, buf, n, offset));
    }
    int write(int fd, long long offset, void* buf, unsigned n) override
    {
        return static_cast<int>(::pwrite64(fd, buf, std::min(n, maxWrite), offset));
    }
    int fstat(int fd, struct stat64* st, Mode) override { return ::fstat64(fd, st); }
    int stat(const SRString& path, struct stat64* st, Mode) override { return SRFileUtil::stat64(path, st); }
    int remove(const SRString& path, IKrxFileAdaptor::RemoveFlags, bool) override
    {
        return SRFileUtil::remove(path);
    }
    int createDir(const SRString& path) override { return SRFileUtil::createDir(path) ? 0 : -1; }
    int readDir(const SRString&, std::vector<SRString>&) override { return -1; }
};

enum class Outcome
{
    kDone,
    kFailed,  ///< told by the result
    kFileReadException,
    kNoMemory,  ///< SROutOfMemory or std::bad_alloc
};

template <typename Operation>
Outcome outcomeOf(const Operation& operation)
{
    try {
        return operation() ? Outcome::kDone : Outcome::kFailed;
    } catch (const FileReadException&) {
        return Outcome::kFileReadException;
    } catch (const SROutOfMemory&) {
        return Outcome::kNoMemory;
    } catch (const std::bad_alloc&) {
        return Outcome::kNoMemory;
    }
}

std::ptrdiff_t openDescriptors()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir("/proc/self/fd"), ::closedir);
    std::ptrdiff_t count = 0;
    while (::readdir(dir.get()))
        ++count;
    return count;
}

/// Each operation ends in the one way that its header tells, and leaves nothing open.
TEST(OutOfMemory, ComesOutAsTheHeadersTell)
{
    const test::TempDir dir;
    RealFileIo io;
    RealFileIo shortIo;
    shortIo.maxWrite = 2;
    const std::string content(1000, 'x');
    const SRString source = dir.write("source", content);
    const SRString missing = dir.file("missing");
    const SRString target = dir.file("a/b/target");
    const SRString tree = dir.file("a");
    const SRString copy = dir.file("a/copy");
    const SRString renamed = dir.file("a/renamed");
    const SRString part = dir.file("part");
    const SRString pattern = dir.file("sou*");

    const struct
    {
        const char* name;
        Outcome always;  ///< with all the memory
        Outcome without;
        std::function<bool()> operation;
    } cases[] = {
        {"load", Outcome::kDone, Outcome::kFileReadException,
         [&] { return AutoFileLoad(source, &io).getBuffer().length() == content.size(); }},
        {"load a missing file", Outcome::kFileReadException, Outcome::kFileReadException,
         [&] { return AutoFileLoad(missing, &io).remaining() != 0; }},
        {"read beyond the end", Outcome::kFileReadException, Outcome::kFileReadException,
         [&] {
             AutoFileLoad load(source, &io);
             while (load.readU64() != 0) {
             }
             return true;
         }},
        {"save", Outcome::kDone, Outcome::kFileReadException,
         [&] {
             AutoFileSave save(target, &io, 16);
             save.write(content.data(), static_cast<unsigned>(content.size()));
             save.flush();
             return true;
         }},
        {"save a part", Outcome::kFileReadException, Outcome::kFileReadException,
         [&] {
             AutoFileSave(part, &shortIo, AutoFileLoad(source, &io).getBuffer()).flush();
             return true;
         }},
        {"list", Outcome::kDone, Outcome::kFailed,
         [&] {
             FindData data;
             const FindHandle handle = FindFirstFile(pattern, data);
             return handle && data.name == L"source" && !FindNextFile(handle, data);
         }},
        {"change the tree", Outcome::kDone, Outcome::kFailed,
         [&] {
             return SRFileUtil::createDir(tree) && SRFileUtil::copyFile(source, copy, true) &&
                    SRFileUtil::rename(copy, renamed) == 0 && SRFileUtil::removeDirRecursive(tree);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::ptrdiff_t open = openDescriptors();
        Outcome outcome = Outcome::kDone;
        const auto operation = [&] { outcome = outcomeOf(c.operation); };
        test::withEachAllocationFailing(operation, [&](unsigned failed) {
            // Some allocations only spare time.
            EXPECT_TRUE(outcome == c.always || (failed != 0 && outcome == c.without)) << failed;
            EXPECT_EQ(openDescriptors(), open) << failed;
            std::filesystem::remove_all(dir.bytes("a"));
        });
    }
}

}  // namespace
}  // namespace krx::util
