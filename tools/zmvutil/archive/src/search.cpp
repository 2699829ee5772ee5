// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/search.h"

#include "tools/zmvutil/archive/src/fnv.h"
#include "tools/zmvutil/archive/src/folder.h"
#include "tools/zmvutil/archive/src/nameglobs.h"
#include "tools/zmvutil/archive/src/pathlist.h"
#include "tools/zmvutil/archive/src/reachedpaths.h"
#include "tools/zmvutil/archive/src/rotationaldisks.h"
#include "tools/zmvutil/archive/src/stamps.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace archive {
namespace {

/// Folders of the way that are open at a time, from the current one up.
constexpr std::size_t kMaxOpen = 32;
/// In nanoseconds, about a century, so that it can be added to a time.
constexpr long long kMaxMinAge = 3'000'000'000'000'000'000;
/// How far up a folder is looked for that is its own ancestor. Damaged file systems have such loops.
constexpr std::size_t kMaxLoop = 1000;

vidlint::InputKind kindOfFile(const std::string& path)
{
    static const NameGlobs zmv({"*.zmv"}, NameGlobs::Case::kAny);
    return zmv.matches(path.c_str()) ? vidlint::InputKind::kZmv : vidlint::InputKind::kMp4;
}

std::vector<std::string> pathsOf(const std::vector<SearchOptions::Root>& roots)
{
    std::vector<std::string> paths;
    paths.reserve(roots.size());
    for (const SearchOptions::Root& root : roots)
        paths.push_back(root.path);
    return paths;
}

/// What the system tells of an input.
struct Facts
{
    InputStamp stamp;
    dev_t device;
};

}  // namespace

unsigned shardOf(const std::string& name, unsigned shards)
{
    return shards == 0 ? 1 : static_cast<unsigned>(fnv1a(name) % shards) + 1;
}

class Search::Impl
{
public:
    struct Below
    {
        std::uint64_t found = 0;
        bool isComplete = true;
    };

    Impl(SearchOptions options, std::function<void(const std::string&)> warn);

    bool next(FoundInput& found);
    Below below(const std::string& label) const;
    bool isRotational(const std::string& path);

    SearchCounts m_counts;
    std::function<void(const std::string&, const std::string&)> m_skipped;

private:
    /// A folder on the way from the start to where the search is.
    struct Step
    {
        Folder folder;
        std::size_t pathLength;
    };

    // These return whether they found an input.
    bool startRoot(std::size_t index, FoundInput& found);
    bool startListed(std::string path, FoundInput& found);
    bool takeEntry(FoundInput& found);
    bool takeFile(int folder, const char* name, bool isLink, FoundInput& found);
    bool enter(int parent, const char* name, bool isStart, FoundInput& found);
    bool takeRecording(const Folder& folder, FoundInput& found);
    bool offer(vidlint::InputKind kind, const std::optional<Facts>& facts, FoundInput& found);

    void beginAt(const std::string& label, std::size_t root, std::string path);
    std::optional<std::string> nextListed();
    void leave();
    bool isLoop(const Folder& folder) const;
    bool isRepeated();
    bool isOwn();
    bool isYoung(long long modifiedNs) const;
    void lose(const std::string& what, int error = 0);
    /// Of what is looked at, below its root.
    std::string name() const { return m_path.substr(std::min(m_nameStart, m_path.size())); }

    const SearchOptions m_options;
    const std::function<void(const std::string&)> m_warn;
    const NameFilter m_filter;
    std::optional<PathList> m_list;
    ReachedPaths m_reached;
    RotationalDisks m_disks;
    std::map<std::string, Below> m_below;  ///< by label
    std::size_t m_nextRoot = 0;

    // Of the start that the search is at or below.
    std::size_t m_root = 0;  ///< number, or ReachedPaths::kListed
    std::string m_label;
    Below* m_current = nullptr;
    dev_t m_device = 0;
    std::string m_realPath;
    std::size_t m_startLength = 0;  ///< of m_path
    std::size_t m_nameStart = 0;    ///< in m_path
    bool m_takesAllShards = false;

    std::vector<Step> m_way;
    std::string m_path;  ///< of what is looked at
};

Search::Impl::Impl(SearchOptions options, std::function<void(const std::string&)> warn)
    : m_options(std::move(options)),
      m_warn(std::move(warn)),
      m_filter(makeNameFilter(m_options.include, m_options.exclude, m_options.usesDefaultExcludes)),
      m_reached(pathsOf(m_options.roots), !m_options.filesFrom.empty(), m_warn)
{
    if (!m_options.filesFrom.empty())
        m_list.emplace(m_options.filesFrom);
}

bool Search::Impl::next(FoundInput& found)
{
    for (;;) {
        if (!m_way.empty()) {
            if (takeEntry(found))
                return true;
        } else if (m_nextRoot < m_options.roots.size()) {
            if (startRoot(m_nextRoot++, found))
                return true;
        } else if (std::optional<std::string> path = nextListed()) {
            if (startListed(std::move(*path), found))
                return true;
        } else {
            return false;
        }
    }
}

Search::Impl::Below Search::Impl::below(const std::string& label) const
{
    const auto place = m_below.find(label);
    return place == m_below.end() ? Below() : place->second;
}

void Search::Impl::beginAt(const std::string& label, std::size_t root, std::string path)
{
    m_root = root;
    m_label = label;
    m_current = &m_below[label];
    m_path = withoutSlashesAtEnd(std::move(path));
    m_startLength = m_path.size();
    m_nameStart = 0;
    m_takesAllShards = false;
}

bool Search::Impl::startRoot(std::size_t index, FoundInput& found)
{
    beginAt(m_options.roots[index].label, index, m_options.roots[index].path);
    m_nameStart = m_path == "/" ? 1 : m_path.size() + 1;
    struct stat status = {};
    if (::fstatat(AT_FDCWD, m_path.c_str(), &status, 0) != 0) {
        lose("it cannot be searched", errno);
        return false;
    }
    const bool isFolder = S_ISDIR(status.st_mode);
    m_realPath = m_reached.realPathOf(m_path, isFolder);
    if (isRepeated())
        return false;
    if (isFolder)
        return enter(AT_FDCWD, m_path.c_str(), true, found);
    return takeFile(AT_FDCWD, m_path.c_str(), true, found);
}

std::optional<std::string> Search::Impl::nextListed()
{
    std::string path;
    while (m_list) {
        const PathList::Got got = m_list->next(path);
        if (got == PathList::Got::kPath)
            return path;
        if (got == PathList::Got::kEnd)
            break;
        const int error = errno;
        beginAt("", ReachedPaths::kListed, m_options.filesFrom);
        if (got == PathList::Got::kFailed)
            lose("the list cannot be read wholly", error);
        else if (got == PathList::Got::kTooLong)
            lose("the list has a path of more than " + std::to_string(PATH_MAX - 1) +
                 " bytes; each is to be ended by a zero byte");
        else
            lose("the list has an empty path");
    }
    return std::nullopt;
}

bool Search::Impl::startListed(std::string path, FoundInput& found)
{
    beginAt("", ReachedPaths::kListed, std::move(path));
    m_realPath = m_reached.realPathOf(m_path, false);
    if (isRepeated())
        return false;
    const std::string last = m_path.substr(m_path.rfind('/') + 1);
    const bool hasUsualName = m_filter.include.matches(last.c_str());
    if (hasUsualName && !isOwn()) {
        ++m_counts.otherShards;
        return false;
    }
    struct stat status = {};
    if (::fstatat(AT_FDCWD, m_path.c_str(), &status, 0) != 0 || !S_ISDIR(status.st_mode))
        return takeFile(AT_FDCWD, m_path.c_str(), true, found);
    std::string realFolder = m_reached.realPathOf(m_path, true);
    if (realFolder != m_realPath) {
        m_realPath = std::move(realFolder);
        if (isRepeated())
            return false;
    }
    // The other shards took it for a file and passed it over.
    m_takesAllShards = hasUsualName;
    return enter(AT_FDCWD, m_path.c_str(), true, found);
}

bool Search::Impl::takeEntry(FoundInput& found)
{
    Step& step = m_way.back();
    const Folder::Entry* const entry = step.folder.next();
    if (!entry) {
        leave();
        return false;
    }
    const char* const entryName = step.folder.nameOf(*entry);
    m_path.resize(step.pathLength);
    if (m_path.back() != '/')
        m_path += '/';
    m_path += entryName;
    if (isRepeated())
        return false;
    const int folder = step.folder.descriptor();
    if (entry->kind == Folder::Kind::kFolder)
        return enter(folder, entryName, false, found);
    return takeFile(folder, entryName, entry->kind == Folder::Kind::kLink, found);
}

/// Takes what m_path names if it is a file. isLink: it may be a link, whose target may be missing, or what
/// somebody named who expects an answer.
bool Search::Impl::takeFile(int folder, const char* name, bool isLink, FoundInput& found)
{
    if (!isOwn()) {
        ++m_counts.otherShards;
        return false;
    }
    struct stat status = {};
    if (::fstatat(folder, name, &status, 0) != 0) {
        if (errno == ENOENT && !isLink)
            return false;  // removed meanwhile
        return offer(kindOfFile(m_path), std::nullopt, found);
    }
    if (S_ISREG(status.st_mode))
        return offer(kindOfFile(m_path), Facts{stampOfFile(status), status.st_dev}, found);
    if (m_way.empty())
        lose("it is neither a file nor a folder");
    return false;
}

/// Opens the folder that m_path names, and makes it the current one unless it is a recording.
bool Search::Impl::enter(int parent, const char* name, bool isStart, FoundInput& found)
{
    Folder folder;
    if (!folder.open(parent, name, isStart)) {
        lose("the folder cannot be opened", errno);
        return false;
    }
    if (isStart)
        m_device = folder.device();
    if (m_options.staysOnFileSystem && folder.device() != m_device)
        return false;
    if (isLoop(folder)) {
        lose("the folder lies in itself");
        return false;
    }
    if (const int error = folder.read(m_filter); error != 0)
        lose("the folder cannot be read wholly", error);
    if (folder.isRecording())
        return takeRecording(folder, found);
    m_counts.excluded += folder.excluded();
    if (m_way.size() >= kMaxOpen)
        m_way[m_way.size() - kMaxOpen].folder.close();
    m_way.push_back({std::move(folder), m_path.size()});
    return false;
}

bool Search::Impl::takeRecording(const Folder& folder, FoundInput& found)
{
    if (!isOwn()) {
        ++m_counts.otherShards;
        return false;
    }
    std::optional<Facts> facts = Facts{{}, folder.device()};
    if (!stampOfRecording(folder.stream(), facts->stamp))
        facts.reset();
    return offer(vidlint::InputKind::kRecording, facts, found);
}

/// Finds the input that m_path names, unless it is to be skipped.
bool Search::Impl::offer(vidlint::InputKind kind, const std::optional<Facts>& facts, FoundInput& found)
{
    const bool isTooLong = m_path.size() >= PATH_MAX;
    if (isTooLong || (facts && isYoung(facts->stamp.modifiedNs))) {
        if (isTooLong)
            lose("the path is too long to be opened");
        else
            ++m_counts.young;
        if (m_skipped)
            m_skipped(m_label, name());
        return false;
    }
    found.root = m_label;
    found.name = name();
    found.path = m_path;
    found.kind = kind;
    found.stamp = facts ? facts->stamp : InputStamp();
    found.isRotational = facts && m_disks.isRotational(facts->device);
    ++m_counts.found;
    ++m_current->found;
    return true;
}

bool Search::Impl::isRotational(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && m_disks.isRotational(status.st_dev);
}

/// Goes back to the folder around the current one, which may have been closed.
void Search::Impl::leave()
{
    const Folder child = std::move(m_way.back().folder);
    m_way.pop_back();
    if (m_way.empty() || m_way.back().folder.descriptor() >= 0)
        return;
    Step& step = m_way.back();
    m_path.resize(step.pathLength);
    const bool isBack = child.descriptor() >= 0 && step.folder.reopen(child.descriptor(), "..");
    if (isBack || step.folder.reopen(AT_FDCWD, m_path.c_str()))
        return;
    lose("the folder is not there any more; the rest of it was not searched");
    step.folder.dropRest();
}

bool Search::Impl::isLoop(const Folder& folder) const
{
    const auto end = m_way.rbegin() + static_cast<std::ptrdiff_t>(std::min(m_way.size(), kMaxLoop));
    return std::any_of(m_way.rbegin(), end, [&](const Step& step) { return step.folder.isSame(folder); });
}

bool Search::Impl::isRepeated()
{
    const bool isNew = m_reached.reach(m_realPath, std::string_view(m_path).substr(m_startLength), m_root);
    m_counts.repeated += !isNew;
    return !isNew;
}

bool Search::Impl::isOwn()
{
    return m_takesAllShards || shardOf(name(), m_options.shards) == m_options.shard;
}

bool Search::Impl::isYoung(long long modifiedNs) const
{
    constexpr long long kPerSecond = 1'000'000'000;
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const long long nowNs = now.tv_sec * kPerSecond + now.tv_nsec;
    const long long minAge = std::min(m_options.minAgeNs, kMaxMinAge);
    return modifiedNs > nowNs - minAge && modifiedNs < nowNs + minAge;
}

/// Says what is wrong with m_path; error: an errno, or 0.
void Search::Impl::lose(const std::string& what, int error)
{
    ++m_counts.unreadable;
    m_current->isComplete = false;
    std::string sentence = m_path + ": " + what;
    if (error != 0)
        sentence += " (" + std::generic_category().message(error) + ')';
    m_warn(sentence);
}

Search::Search(SearchOptions options, std::function<void(const std::string&)> warn)
    : m_impl(std::make_unique<Impl>(std::move(options), std::move(warn)))
{
}

Search::~Search() = default;

void Search::setSkipped(std::function<void(const std::string& root, const std::string& name)> skipped)
{
    m_impl->m_skipped = std::move(skipped);
}

bool Search::next(FoundInput& found)
{
    return m_impl->next(found);
}

const SearchCounts& Search::counts() const
{
    return m_impl->m_counts;
}

std::uint64_t Search::foundBelow(const std::string& label) const
{
    return m_impl->below(label).found;
}

bool Search::isComplete(const std::string& label) const
{
    return m_impl->below(label).isComplete;
}

bool Search::isRotational(const std::string& path)
{
    return m_impl->isRotational(path);
}

bool Search::stampOf(const FoundInput& found, InputStamp& stamp)
{
    if (found.kind == vidlint::InputKind::kRecording) {
        Folder folder;
        return folder.open(AT_FDCWD, found.path.c_str(), true) && stampOfRecording(folder.stream(), stamp);
    }
    struct stat status = {};
    if (::fstatat(AT_FDCWD, found.path.c_str(), &status, 0) != 0 || !S_ISREG(status.st_mode))
        return false;
    stamp = stampOfFile(status);
    return true;
}

}  // namespace archive
