// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/tempdir.h"
#include "util/findfile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <filesystem>
#include <set>
#include <string>

namespace krx::util {
namespace {

using Names = std::set<std::string>;

/// What a pattern lists; directories end with '/'.
Names list(const SRString& pattern)
{
    Names names;
    FindData data;
    FindHandle handle = FindFirstFile(pattern, data);
    for (bool more = handle && !data.name.empty(); more; more = FindNextFile(handle, data))
        names.insert(SRLocaleString(data.name).c_str() + std::string(data.attributes == 16 ? "/" : ""));
    EXPECT_TRUE(data.name.empty());
    EXPECT_TRUE(FindClose(handle));
    return names;
}

TEST(FindFile, MatchesWholeNamesByteByByte)
{
    const test::TempDir dir;
    const char* const names[] = {"a.idx",       "b.idx",    "aidx", "a.idx.bak",    "[x]", "x",    "a\\b",
                                 "$^+(){1}|-a", "\xFF\xFE", "\n",   "\xC3\xA9.idx", "ab",  "A.idx"};
    for (const char* name : names)
        dir.write(name, "");
    dir.makeDir("dir.idx");
    std::filesystem::create_directory_symlink("dir.idx", dir.bytes("link"));
    const Names all = [&] {
        Names result(std::begin(names), std::end(names));
        result.insert({"dir.idx/", "link/", "./", "../"});
        return result;
    }();

    const struct
    {
        const char* pattern;
        Names expected;
    } cases[] = {
        {"*", all},
        {"", all},
        {"*.idx", {"a.idx", "b.idx", "dir.idx/", "\xC3\xA9.idx", "A.idx"}},
        {"?.idx", {"a.idx", "b.idx", "A.idx"}},
        {"a*", {"a.idx", "aidx", "a.idx.bak", "a\\b", "ab"}},
        {"a.idx", {"a.idx"}},
        {"[x]", {"[x]"}},
        {"$^+(){1}|-a", {"$^+(){1}|-a"}},
        {"\xFF?", {"\xFF\xFE"}},
        {"?", {"x", "\n", "./"}},
        {"link", {"link/"}},
        {"nothing*", {}},
    };
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_TRUE(std::setlocale(LC_ALL, locale));
        for (const auto& c : cases)
            EXPECT_EQ(list(dir.file(c.pattern)), c.expected) << locale << ' ' << c.pattern;
    }
    std::setlocale(LC_ALL, "C");
}

TEST(FindFile, TellsWhenThereIsNothingToList)
{
    const test::TempDir dir;
    FindData data;
    FindHandle none = FindFirstFile(dir.file("missing/*"), data);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(FindNextFile(none, data));
    EXPECT_FALSE(FindClose(none));

    // A pattern without a directory looks into the current one.
    const auto before = std::filesystem::current_path();
    dir.write("here", "");
    std::filesystem::current_path(dir.path());
    EXPECT_EQ(list(SRString(L"h*")), Names{"here"});
    std::filesystem::current_path(before);
}

}  // namespace
}  // namespace krx::util
