// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/searchresult.h"
#include "tests/support/propertysettings.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace krx::test {
namespace {

using archive::FoundInput;
using vidlint::InputKind;

/// What lies under a name in a made folder.
enum class Node
{
    kFolder,
    kFile,
    kHardLink,
    kLinkToFile,
    kLinkToNothing,
    kLinkToFolder,
    kPipe,
};

const std::string kLongName = std::string(251, 'l') + ".mp4";
const Names kUsual = {"a.mp4",       "B.MP4",           "c.zMv",        ".mov",
                      ".hidden.m4v", "line\nbreak.3gp", "\xFF\xFE.m4a", kLongName};
const Names kExcluded = {"._a.mp4", "b.mp4.part", ".snapshot", "~snapshot", ".zfs"};
const Names kSigns = {"index", "contexts", "00000000000000aF", "0000000000000010"};
const Names kOthers = {"notes.txt", "mp4", "000000000000001", "000000000000000g", "season 1", "*"};

bool isIn(const Names& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Trees on the disk, and what is in them as they were made.
class MadeTree
{
public:
    explicit MadeTree(std::mt19937& random) : m_random(random)
    {
        for (const Names& names : {kUsual, kExcluded, kSigns, kOthers})
            m_names.insert(m_names.end(), names.begin(), names.end());
        m_dir.write("target", "bytes");
        m_dir.write("elsewhere.mp4", "bytes");
        make(root(), 0);
    }

    std::string root() const { return m_dir.bytes("tree"); }
    const Names& folders() const { return m_folders; }
    std::string writeList(const Names& paths) const
    {
        std::string list;
        for (const std::string& path : paths)
            list += path + '\0';
        m_dir.write("list", list);
        return m_dir.bytes("list");
    }

    struct Expected
    {
        Names paths() const
        {
            Names all;
            for (const auto& [path, kind] : inputs)
                all.push_back(path);
            return all;
        }

        std::map<std::string, InputKind> inputs;  ///< by path
        std::uint64_t excluded = 0;
    };
    void expect(const std::string& folder, bool usesExcludes, Expected& expected) const
    {
        const std::map<std::string, Node>& entries = m_entries.at(folder);
        std::set<std::size_t> signs;  // a length each
        for (const auto& [name, node] : entries) {
            if (isIn(kSigns, name) &&
                (node == Node::kFile || node == Node::kHardLink || node == Node::kLinkToFile))
                signs.insert(name.size());
        }
        if (signs.size() > 1) {
            expected.inputs[folder] = InputKind::kRecording;
            return;
        }
        for (const auto& [name, node] : entries) {
            const std::string path = folder + '/' + name;
            if (usesExcludes && isIn(kExcluded, name))
                ++expected.excluded;
            else if (node == Node::kFolder)
                expect(path, usesExcludes, expected);
            else if (node != Node::kPipe && node != Node::kLinkToFolder &&
                     (isIn(kUsual, name) || name == "._a.mp4"))
                expected.inputs[path] = name == "c.zMv" ? InputKind::kZmv : InputKind::kMp4;
        }
    }

private:
    void make(const std::string& folder, int depth)
    {
        ASSERT_TRUE(std::filesystem::create_directory(folder));
        m_folders.push_back(folder);
        m_entries[folder];
        Names names = m_names;
        std::shuffle(names.begin(), names.end(), m_random);
        names.resize(m_random() % (names.size() / 2));
        for (const std::string& name : names) {
            const bool isFolder = depth < 5 && m_random() % 3 == 0;
            const auto node = isFolder ? Node::kFolder : static_cast<Node>(1 + m_random() % 6);
            m_entries[folder][name] = node;
            if (isFolder)
                make(folder + '/' + name, depth + 1);
            else
                ASSERT_EQ(makeNode(folder + '/' + name, node), 0) << name;
        }
    }
    int makeNode(const std::string& path, Node node)
    {
        const std::string target = m_dir.bytes("target");
        switch (node) {
            case Node::kHardLink:
                return ::link(target.c_str(), path.c_str());
            case Node::kLinkToFile:
                return ::symlink(target.c_str(), path.c_str());
            case Node::kLinkToNothing:
                return ::symlink("nothing", path.c_str());
            case Node::kLinkToFolder:
                return ::symlink(m_random() % 2 ? "." : m_dir.path().c_str(), path.c_str());
            case Node::kPipe:
                return ::mkfifo(path.c_str(), 0600);
            default:
                return ::mknod(path.c_str(), S_IFREG | 0600, 0);
        }
    }

    std::mt19937& m_random;
    Names m_names;
    TempDir m_dir;
    Names m_folders;
    std::map<std::string, std::map<std::string, Node>> m_entries;
};

/// The inodes and names on the way from root to the input: the order of a search.
std::vector<std::pair<ino_t, std::string>> placeOf(const std::string& root, const FoundInput& input)
{
    std::vector<std::pair<ino_t, std::string>> place;
    std::string path = root;
    for (const auto& part : std::filesystem::path(input.name)) {
        path += '/' + part.string();
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0);
        place.emplace_back(status.st_ino, part.string());
    }
    return place;
}

std::string plain(const std::string& path)
{
    const std::string normal = std::filesystem::path(path).lexically_normal().string();
    return normal.back() == '/' ? normal.substr(0, normal.size() - 1) : normal;
}

void expectAllOfOneRoot(const MadeTree& tree, std::mt19937& random)
{
    archive::SearchOptions options = below({tree.root()});
    options.usesDefaultExcludes = random() % 2;
    MadeTree::Expected expected;
    tree.expect(tree.root(), options.usesDefaultExcludes, expected);
    const SearchResult result(options);
    EXPECT_EQ(result.sorted(&FoundInput::path), expected.paths());
    EXPECT_EQ(result.counts.excluded, expected.excluded);
    EXPECT_EQ(result.sentences, Names());
    std::vector<std::vector<std::pair<ino_t, std::string>>> places;
    for (const FoundInput& input : result.inputs) {
        EXPECT_EQ(input.kind, expected.inputs[input.path]) << input.path;
        EXPECT_EQ(input.name.empty() ? tree.root() : tree.root() + '/' + input.name, input.path);
        places.push_back(placeOf(tree.root(), input));
        archive::InputStamp stamp;
        if (archive::Search::stampOf(input, stamp))
            EXPECT_EQ(stamp, input.stamp);
        else
            EXPECT_EQ(::access(input.path.c_str(), F_OK), -1);
    }
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

void expectAllOfManyRootsOnce(const MadeTree& tree, std::mt19937& random)
{
    MadeTree::Expected expected;
    Names roots = {tree.root() + "//", tree.root() + "/."};
    for (int i = 0; i < 3; ++i)
        roots.push_back(tree.folders()[random() % tree.folders().size()]);
    for (const std::string& root : roots)
        tree.expect(plain(root), true, expected);
    std::shuffle(roots.begin(), roots.end(), random);
    Names paths;
    for (const FoundInput& input : SearchResult(below(roots)).inputs)
        paths.push_back(plain(input.path));
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, expected.paths());
}

void expectAllOfListAndShardsOnce(const MadeTree& tree, std::mt19937& random)
{
    MadeTree::Expected expected;
    tree.expect(tree.root(), true, expected);
    Names listed = expected.paths();
    for (std::size_t i = listed.size(); i-- > 0;) {
        std::string again = listed[i];
        if (random() % 2)
            again.insert(again.rfind('/'), "/.");
        listed.push_back(again);
    }
    listed.push_back(tree.root());
    std::shuffle(listed.begin(), listed.end(), random);
    archive::SearchOptions options = below(random() % 2 ? Names{tree.root()} : Names());
    options.filesFrom = tree.writeList(listed);
    options.shards = 1 + static_cast<unsigned>(random() % 4);
    Names paths;
    for (options.shard = 1; options.shard <= options.shards; ++options.shard) {
        for (const FoundInput& input : SearchResult(options).inputs) {
            EXPECT_EQ(archive::shardOf(input.name, options.shards), options.shard);
            const std::string whole = input.root + (input.name.empty() ? "" : '/' + input.name);
            EXPECT_EQ(input.root.empty() ? input.name : whole, input.path);
            paths.push_back(plain(input.path));
        }
    }
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, expected.paths());
}

TEST(SearchTrees, AreSearchedAsTheyWereMade)
{
    for (unsigned long i = 0; i < propertyCases(20) && !::testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE("tree " + std::to_string(i));
        std::mt19937 random(static_cast<unsigned>(i) + 1000 * propertySeed());
        const MadeTree tree(random);
        g_hooks.hidesKinds = i % 3 == 0;
        expectAllOfOneRoot(tree, random);
        expectAllOfManyRootsOnce(tree, random);
        expectAllOfListAndShardsOnce(tree, random);
    }
    g_hooks = {};
}

}  // namespace
}  // namespace krx::test
