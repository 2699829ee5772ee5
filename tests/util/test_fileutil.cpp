// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/tempdir.h"
#include "util/SRFileUtil.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace krx::util {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

SRString wide(std::string_view bytes)
{
    return SRString::fromMultiByte(bytes);
}

std::string narrow(const SRString& text)
{
    return SRLocaleString(text).c_str();
}

mode_t permissionOf(const SRString& path)
{
    struct ::stat64 st = {};
    return SRFileUtil::stat64(path, &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(SRFileUtil, OpenCreatesWithThePermissionOfTheModeBits)
{
    const TempDir dir;
    const mode_t before = ::umask(0);
    const struct
    {
        int mode;
        mode_t permission;
    } cases[] = {{0x80, 0666}, {0600, 0666}, {0x100, 0444}, {0x45, 0105}};
    for (const auto& c : cases) {
        const SRString path = dir.file(std::to_string(c.mode));
        const SRAutoFile file(SRFileUtil::open(path, O_WRONLY | O_CREAT, c.mode));
        EXPECT_GE(file.get(), 0);
        EXPECT_EQ(permissionOf(path), c.permission) << c.mode;
        EXPECT_EQ(SRFileUtil::isReadOnly(path), c.mode != 0x80 && c.mode != 0600);
    }
    ::umask(before);
    EXPECT_LT(SRFileUtil::open(dir.file("missing"), O_RDONLY), 0);
    EXPECT_EQ(errno, ENOENT);
}

TEST(SRFileUtil, FopenReadsNoDirectory)
{
    const TempDir dir;
    for (const char* mode : {"r", "rb", "r+", "w"}) {
        errno = 0;
        EXPECT_EQ(SRFileUtil::fopen(wide(dir.path()), mode), nullptr) << mode;
        EXPECT_EQ(errno, EISDIR) << mode;
    }
}

TEST(SRFileUtil, PositionsReachBeyond32Bits)
{
    const TempDir dir;
    constexpr FilePos kFar = 0x100000005;
    std::FILE* file = SRFileUtil::fopen(dir.file("f"), "w+b");
    ASSERT_TRUE(file);
    EXPECT_TRUE(SRFileUtil::fseek(file, kFar, SEEK_SET));
    EXPECT_EQ(SRFileUtil::fwrite("abc", 1, 3, file), 3U);
    EXPECT_EQ(SRFileUtil::ftell(file), kFar + 3);
    EXPECT_EQ(SRFileUtil::getFileLen(file), kFar + 3);
    EXPECT_FALSE(SRFileUtil::fseek(file, -1, SEEK_SET));
    EXPECT_EQ(SRFileUtil::fclose(file), 0);
    EXPECT_EQ(SRFileUtil::getFileLen(dir.file("f")), kFar + 3);

    const SRAutoFile fd(SRFileUtil::open(dir.file("f"), O_RDWR));
    EXPECT_EQ(SRFileUtil::lseek(fd.get(), kFar + 1, SEEK_SET), kFar + 1);
    char rest[8] = {};
    EXPECT_EQ(SRFileUtil::readUntilDone(fd.get(), rest, sizeof rest), 2);
    EXPECT_STREQ(rest, "bc");
    EXPECT_EQ(SRFileUtil::chsize(fd.get(), kFar - 1), 0);
    EXPECT_EQ(SRFileUtil::getFileLen(fd.get()), kFar - 1);
}

/// Bytes that come in pieces, and signals that interrupt every call, lose nothing.
TEST(SRFileUtil, UntilDoneSurvivesPiecesAndSignals)
{
    struct sigaction interrupting = {};
    struct sigaction before = {};
    interrupting.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &interrupting, &before);
    const struct itimerval often = {{0, 500}, {0, 500}};
    ::setitimer(ITIMER_REAL, &often, nullptr);

    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const std::string sent(1000000, 'x');
    std::thread writer([&] {
        for (std::size_t done = 0; done < sent.size(); done += 100000) {
            ::usleep(2000);  // the reader waits
            EXPECT_EQ(SRFileUtil::writeUntilDone(ends[1], sent.data() + done, 100000), 100000);
        }
        SRFileUtil::close(ends[1]);
    });
    std::string received(sent.size() + 1, '\0');
    EXPECT_EQ(SRFileUtil::readUntilDone(ends[0], received.data(), received.size()), 1000000);
    writer.join();
    received.pop_back();
    EXPECT_EQ(received, sent);
    EXPECT_LT(SRFileUtil::writeUntilDone(ends[0], "x", 1), 0);
    SRFileUtil::close(ends[0]);

    const struct itimerval never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
}

TEST(SRFileUtil, TextStartsBehindTheByteOrderMark)
{
    const TempDir dir;
    const struct
    {
        std::string content;
        unsigned skipped;
    } cases[] = {{"\xEF\xBB\xBFx", 3}, {"\xEF\xBB\xBF", 3}, {"\xEF\xBBx", 0},
                 {"\xEF\xBB", 0},      {"abc", 0},          {"", 0}};
    for (const auto& c : cases) {
        std::FILE* file = SRFileUtil::fopen(dir.write("f", c.content), "rb");
        EXPECT_EQ(SRFileUtil::skipUTF8Header(file), c.skipped != 0) << c.content;
        EXPECT_EQ(SRFileUtil::ftell(file), c.skipped) << c.content;
        SRFileUtil::fclose(file);

        std::string copy = c.content;
        auto* data = reinterpret_cast<unsigned char*>(copy.data());
        const auto* start = data;
        auto length = static_cast<unsigned>(copy.size());
        EXPECT_EQ(SRFileUtil::skipUTF8Header(data, length), c.skipped != 0) << c.content;
        EXPECT_EQ(data - start, c.skipped);
        EXPECT_EQ(length, copy.size() - c.skipped);
    }
}

TEST(SRFileUtil, WideCharactersAreReadAsUtf8)
{
    const TempDir dir;
    const std::string content(
        "a\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xFF\xE2\x82z\xC0\x80\xED\xA0\x80"
        "\xC2\x80\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF\xF0\x9F\x98",
        38);
    const std::wstring expected(
        L"a\0\u00E9\u20AC\U0001F600\xDCFF\xDCE2\xDC82z\xDCC0\xDC80\xDCED\xDCA0\xDC80"
        L"\x80\xDC80\x7FF\x800\xFFFF\U0010FFFF\xDCF0\xDC9F\xDC98",
        23);
    std::FILE* file = SRFileUtil::fopen(dir.write("f", content), "rb");
    std::wstring got;
    for (std::wint_t c = 0; (c = SRFileUtil::fgetwc(file)) != WEOF;)
        got += static_cast<wchar_t>(c);
    EXPECT_EQ(got, expected);
    EXPECT_TRUE(SRFileUtil::_feof(file));
    SRFileUtil::fclose(file);
}

TEST(SRFileUtil, TellsKindsOfFiles)
{
    const TempDir dir;
    dir.write("file", "12345");
    dir.makeDir("dir");
    ASSERT_EQ(::mkfifo(dir.bytes("pipe").c_str(), 0600), 0);
    fs::create_symlink("file", dir.bytes("link"));
    fs::create_symlink("gone", dir.bytes("dangling"));
    dir.write("bytes\xFF\xC0", "");
    const struct
    {
        const char* name;
        bool exists, isDir, isFile, isRegular;
    } cases[] = {
        {"file", true, false, true, true},          {"dir", true, true, false, false},
        {"pipe", true, false, true, false},         {"link", true, false, true, true},
        {"dangling", false, false, false, false},   {"missing", false, false, false, false},
        {"bytes\xFF\xC0", true, false, true, true},
    };
    for (const auto& c : cases) {
        const SRString path = dir.file(c.name);
        EXPECT_EQ(SRFileUtil::fileExists(path), c.exists) << c.name;
        EXPECT_EQ(SRFileUtil::dirExists(path), c.isDir) << c.name;
        EXPECT_EQ(SRFileUtil::isFile(path), c.isFile) << c.name;
        EXPECT_EQ(SRFileUtil::isRegularFile(path), c.isRegular) << c.name;
        EXPECT_EQ(SRFileUtil::access(path, F_OK) == 0, c.exists) << c.name;
        EXPECT_EQ(SRFileUtil::getModifiedTime(path) != 0, c.exists) << c.name;
    }
    EXPECT_EQ(SRFileUtil::getFileLen(dir.file("file")), 5);
    EXPECT_EQ(SRFileUtil::getFileLen(dir.file("missing")), -1);

    const struct utimbuf times = {1000, 2000};
    EXPECT_EQ(SRFileUtil::utime(dir.file("file"), &times), 0);
    EXPECT_EQ(SRFileUtil::getModifiedTime(dir.file("file")), 2000);
    const SRAutoFile fd(SRFileUtil::open(dir.file("file"), O_RDWR));
    EXPECT_EQ(SRFileUtil::futime(fd.get(), nullptr), 0);
    EXPECT_GT(SRFileUtil::getModifiedTime(dir.file("file")), 2000);
}

TEST(SRFileUtil, RenameNeverReplaces)
{
    const TempDir dir;
    dir.write("a", "A");
    dir.write("b", "B");
    fs::create_symlink("gone", dir.bytes("dangling"));
    fs::create_hard_link(dir.bytes("a"), dir.bytes("hard"));
    const struct
    {
        const char *from, *to;
        int error;
    } cases[] = {
        {"a", "b", EACCES},         {"a", "dangling", EACCES}, {"a", "hard", EACCES},
        {"missing", "new", ENOENT}, {"a", "none/x", ENOENT},   {"a", "a", 0},
        {"a", ".//a", 0},           {"a", "new", 0},
    };
    for (const auto& c : cases) {
        errno = 0;
        EXPECT_EQ(SRFileUtil::rename(dir.file(c.from), dir.file(c.to)), c.error == 0 ? 0 : -1)
            << c.from << c.to;
        EXPECT_EQ(errno, c.error) << c.from << ' ' << c.to;
    }
    EXPECT_EQ(dir.read("a") + dir.read("new") + dir.read("b"), "AB");
    EXPECT_EQ(SRFileUtil::renameAndOverwrite(dir.file("new"), dir.file("b")), 0);
    EXPECT_EQ(dir.read("b"), "A");
}

TEST(SRFileUtil, RemovesATreeWithoutFollowingLinks)
{
    const TempDir dir;
    dir.makeDir("tree/a/b");
    dir.makeDir("outside");
    dir.write("outside/kept", "kept");
    for (const char* name : {"tree/f", "tree/a/f", "tree/a/b/bytes\xFF"})
        dir.write(name, "x");
    ASSERT_EQ(::mkfifo(dir.bytes("tree/a/pipe").c_str(), 0600), 0);
    fs::create_directory_symlink(dir.bytes("outside"), dir.bytes("tree/a/link"));
    fs::create_directory_symlink(dir.bytes("outside"), dir.bytes("link"));

    for (const char* name : {"link", "link/", "outside/kept", "missing"})
        EXPECT_FALSE(SRFileUtil::removeDirRecursive(dir.file(name))) << name;
    EXPECT_FALSE(SRFileUtil::removeDir(dir.file("tree")));
    EXPECT_FALSE(SRFileUtil::removeFile(dir.file("tree")));
    EXPECT_TRUE(SRFileUtil::removeDirRecursive(dir.file("tree//")));
    EXPECT_FALSE(SRFileUtil::fileExists(dir.file("tree")));
    EXPECT_EQ(dir.read("link/kept"), "kept");
    EXPECT_TRUE(SRFileUtil::removeFile(dir.file("link")));

    // Deeper than there are descriptors and than a path can tell.
    const SRString top = dir.makeDir("deep");
    int fd = SRFileUtil::open(top, O_RDONLY);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(::mkdirat(fd, "d", 0777), 0);
        const int next = ::openat(fd, "d", O_RDONLY);
        ::close(fd);
        fd = next;
    }
    ::close(fd);
    EXPECT_TRUE(SRFileUtil::removeDirRecursive(top));
    EXPECT_FALSE(SRFileUtil::fileExists(top));
}

TEST(SRFileUtil, CreatesMissingDirectories)
{
    const TempDir dir;
    dir.write("file", "");
    std::string deep;
    while (deep.size() < 2000000)
        deep += "a/";
    const struct
    {
        std::string name;
        bool expected;
    } cases[] = {{"a/b/c", true},
                 {"a/b/c", true},
                 {"a\\d\\", true},
                 {"x/./y/../z/", true},
                 {"file/a", false},
                 {"file", false},
                 {std::string(300, 'n'), false},
                 {deep, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(SRFileUtil::createDir(dir.file(c.name)), c.expected) << c.name.substr(0, 100);
        EXPECT_EQ(SRFileUtil::dirExists(SRFileUtil::nameToNative(dir.file(c.name))), c.expected);
    }
    EXPECT_TRUE(SRFileUtil::dirExists(dir.file("a/d")));
    EXPECT_FALSE(SRFileUtil::createDir(SRString()));
    EXPECT_TRUE(SRFileUtil::createParentDir(dir.file("p/q/file")));
    EXPECT_TRUE(SRFileUtil::dirExists(dir.file("p/q")));
    EXPECT_TRUE(SRFileUtil::createParentDir(SRString(L"bare")));
}

TEST(SRFileUtil, CopiesFilesAndSparesTheSource)
{
    const TempDir dir;
    const std::string content(600000, 'c');
    const SRString from = dir.write("from", content);
    EXPECT_TRUE(SRFileUtil::copyFile(from, dir.file("to"), true));
    EXPECT_EQ(dir.read("to"), content);
    EXPECT_FALSE(SRFileUtil::copyFile(dir.write("short", "s"), dir.file("to"), true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(SRFileUtil::copyFile(dir.file("short"), dir.file("to"), false));
    EXPECT_EQ(dir.read("to"), "s");

    fs::create_hard_link(dir.bytes("from"), dir.bytes("hard"));
    fs::create_symlink("from", dir.bytes("link"));
    ASSERT_EQ(::mkfifo(dir.bytes("pipe").c_str(), 0600), 0);
    for (const char* to : {"from", "hard", "link", "pipe", "none/x", "."})
        EXPECT_FALSE(SRFileUtil::copyFile(from, dir.file(to), false)) << to;
    EXPECT_FALSE(SRFileUtil::copyFile(dir.file("pipe"), dir.file("new"), false));
    EXPECT_FALSE(SRFileUtil::copyFile(wide(dir.path()), dir.file("new"), false));
    EXPECT_FALSE(SRFileUtil::copyFile(from, SRString(L"/dev/full"), false));
    EXPECT_FALSE(SRFileUtil::fileExists(dir.file("new")));
    EXPECT_EQ(dir.read("from"), content);
}

TEST(SRFileUtil, SplitsPaths)
{
    const struct
    {
        const char *path, *dir, *name, *parent;
    } cases[] = {
        {"a/b/c", "a/b", "c", "a/b"},
        {"a\\b", "a", "b", "a"},
        {"/a", "/", "a", "/"},
        {"a", "", "a", ""},
        {"a/", "a", "", ""},
        {"/a/b//", "/a/b/", "", "/a"},
        {"", "", "", ""},
        {"/", "/", "", ""},
        {"//", "/", "", ""},
        {"a//b", "a/", "b", "a"},
        {"\\a", "\\", "a", "\\"},
    };
    for (const auto& c : cases) {
        SRString dir;
        SRString name = wide(c.path);
        SRFileUtil::splitPath(name, dir, name);
        EXPECT_EQ(narrow(dir), c.dir) << c.path;
        EXPECT_EQ(narrow(name), c.name) << c.path;
        EXPECT_EQ(narrow(SRFileUtil::getParentDir(wide(c.path))), c.parent) << c.path;
    }
}

TEST(SRFileUtil, FormsPaths)
{
    const auto resolve = [](const char* base, const char* path) {
        return narrow(SRFileUtil::resolvePath(wide(base), wide(path)));
    };
    EXPECT_EQ(resolve("/a/b", "../c/./d"), "/a/c/d");
    EXPECT_EQ(resolve("/a", "../../../x"), "/x");
    EXPECT_EQ(resolve("a", "../../x"), "../x");
    EXPECT_EQ(resolve("a", ".."), ".");
    EXPECT_EQ(resolve("/a", "//b/../c"), "/c");

    const auto relative = [](const char* base, const char* path) {
        return narrow(SRFileUtil::absoluteToRelativePath(wide(base), wide(path)));
    };
    EXPECT_EQ(relative("/a/b", "/a/b/c"), "c");
    EXPECT_EQ(relative("/a/b/", "/a/x/../d/e"), "../d/e");
    EXPECT_EQ(relative("/a", "/a"), ".");
    EXPECT_EQ(relative("/a/bc", "/a/b"), "../b");
    EXPECT_EQ(relative("a", "/b"), "/b");

    const auto fixed = [](const char* path) { return narrow(SRFileUtil::fixPathName(wide(path))); };
    EXPECT_EQ(fixed("a//./b/../c/"), "a/b/../c/");
    EXPECT_EQ(fixed("//"), "/");
    EXPECT_EQ(fixed("./"), ".");
    EXPECT_EQ(fixed("\xFF/./\\x"), "\xFF/\\x");
    EXPECT_EQ(fixed(""), "");

    const auto friendly = [](const char* name) {
        return narrow(SRFileUtil::makeFileNameFriendly(wide(name)));
    };
    EXPECT_EQ(friendly("a/b\\c:*?\"<>|\x1F\x7F.mp4"), "a_b_c_________.mp4");
    EXPECT_EQ(friendly("caf\xC3\xA9 \xFF"), "caf\xC3\xA9 \xFF");
    EXPECT_EQ(friendly(".."), "__");
    EXPECT_EQ(friendly(""), "_");

    const struct
    {
        const char* path;
        bool allowed;
    } allowed[] = {{"a/b", true},        {"a/../b", true},  {".", true},         {"..", false},
                   {"a/../../b", false}, {"/a", false},     {"\\a", false},      {"", false},
                   {"a\\..\\..", false}, {"..a/b..", true}, {"a/./../..", false}};
    for (const auto& c : allowed)
        EXPECT_EQ(SRFileUtil::isPathAllowed(wide(c.path)), c.allowed) << c.path;
    EXPECT_FALSE(SRFileUtil::isPathAllowed(SRString(L"a\0b", 3)));
    EXPECT_TRUE(SRFileUtil::isAbsolutePath(SRString(L"/")));
    EXPECT_FALSE(SRFileUtil::isAbsolutePath(SRString()));
}

TEST(SRFileUtil, KnowsTheDirectoriesOfTheProcess)
{
    const TempDir dir;
    const fs::path before = fs::current_path();
    const std::string odd = dir.bytes("odd \xFF");
    fs::create_directory(odd);
    fs::current_path(odd);
    SRString full;
    EXPECT_EQ(narrow(SRFileUtil::getCurDir()), odd);
    EXPECT_TRUE(SRFileUtil::fullpath(full, SRString(L"../x/./y")));
    EXPECT_EQ(narrow(full), dir.bytes("x/y"));
    fs::remove(odd);
    EXPECT_TRUE(SRFileUtil::getCurDir().empty());
    EXPECT_FALSE(SRFileUtil::fullpath(full, SRString(L"x")));
    EXPECT_TRUE(SRFileUtil::fullpath(full, SRString(L"/x/..")));
    EXPECT_EQ(full, L"/");
    fs::current_path(before);

    SRFileUtil::setTmpDir(SRString(L"/some/tmp"));
    EXPECT_EQ(SRFileUtil::getTmpDir(), L"/some/tmp");
    SRFileUtil::setTmpDir(SRString());
    EXPECT_TRUE(SRFileUtil::dirExists(SRFileUtil::getTmpDir()));
    SRFileUtil::setProgramDir(SRString(L"/opt"));
    EXPECT_EQ(SRFileUtil::getProgramDir(), L"/opt");
}

}  // namespace
}  // namespace krx::util
