// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/checkrun.h"

#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/summarytext.h"
#include "tools/zmvutil/archive/src/textformat.h"
#include "tools/zmvutil/archive/src/version.h"

#include <vidlint/check.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <new>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace archive {
namespace {

/// Raised only when results can change.
constexpr unsigned kRevision = 1;

constexpr int kStatusFine = 0;
constexpr int kStatusFound = 1;
constexpr int kStatusUsage = 2;
constexpr int kStatusUnreadable = 3;

bool isWanted(When when, int fd)
{
    return when == When::kAlways || (when == When::kAuto && ::isatty(fd) != 0);
}

/// A place in a semaphore for the length of a scope.
class Slot
{
public:
    explicit Slot(std::counting_semaphore<>* semaphore) : m_semaphore(semaphore)
    {
        if (m_semaphore)
            m_semaphore->acquire();
    }
    ~Slot()
    {
        if (m_semaphore)
            m_semaphore->release();
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

private:
    std::counting_semaphore<>* m_semaphore;
};

}  // namespace

CheckRun::CheckRun(const CheckOptions& options)
    : m_options(options),
      m_hasColor(!options.isJson && isWanted(options.color, STDOUT_FILENO)),
      m_search(options.search, [this](const std::string& sentence) { warn(sentence); }),
      m_progress(options.threads),
      m_openInputs(std::max(1U, options.openInputs))
{
}

CheckRun::~CheckRun() = default;

int CheckRun::run()
{
    RunInfo info;
    info.startedAt = std::time(nullptr);
    info.settings = m_options.settingsText;
    info.revision = kRevision;
    info.shard = m_options.search.shard;
    info.shards = m_options.search.shards;
    for (const SearchOptions::Root& root : m_options.search.roots)
        info.roots.push_back(root.label);
    if (!m_options.search.filesFrom.empty())
        info.roots.emplace_back();  // that of listed paths
    if (!m_options.state.empty()) {
        m_state = std::make_unique<State>(m_options.state, State::Mode::kWrite);
        if (const auto totals = m_state->totals())
            m_progress.expect(totals->inputs, totals->bytes);
        m_state->beginRun(info);
        // What is there but has no result is not gone.
        m_search.setSkipped([this](const std::string& root, const std::string& name) {
            m_state->dropInput(root, name);
        });
    }
    if (m_options.isJson)
        print(runJson(info, kVersion) + "\n");
    {
        std::vector<std::jthread> workers;
        for (unsigned i = 0; i < m_options.threads; ++i)
            workers.emplace_back([this, i] { work(i); });
    }
    return endRun();
}

void CheckRun::work(unsigned worker)
{
    FoundInput found;
    for (bool goesOn = true; goesOn;) {
        try {
            goesOn = takeInput(found);
            if (goesOn)
                checkInput(worker, found);
        } catch (const StateError& error) {
            const std::lock_guard lock(m_outputMutex);
            if (!m_hasFailed.exchange(true))
                m_failure = error.what();
            m_cancel = true;
        } catch (const std::bad_alloc&) {
            warn("no memory is left for an input");
        }
    }
}

bool CheckRun::takeInput(FoundInput& found)
{
    const auto elapsed = std::chrono::steady_clock::now() - m_start;
    if (m_options.maxTime && elapsed > *m_options.maxTime)
        m_isOutOfTime = true;
    if (m_cancel || m_isOutOfTime)
        return false;
    const std::lock_guard lock(m_searchMutex);
    return m_search.next(found);
}

bool CheckRun::isDue(const FoundInput& found)
{
    if (m_options.rechecksAll)
        return true;
    if (!m_options.recheckOlder)
        return false;
    const auto checked = m_state->checkedAt(found.root, found.name);
    return !checked || std::time(nullptr) - *checked > m_options.recheckOlder->count();
}

void CheckRun::checkInput(unsigned worker, const FoundInput& found)
{
    if (m_state && takeStored(found))
        return;
    InputRecord record;
    record.root = found.root;
    record.name = found.name;
    record.report.path = found.path;
    record.report.kind = found.kind;
    if (m_state && !m_state->beginInput(found.root, found.name, found.stamp)) {
        record.crashed = true;
        m_state->store(record, found.stamp);
        finish(record);
        return;
    }
    bool hasResult = false;
    try {
        hasResult = checkOpen(worker, found, record);
        if (m_state && hasResult)
            m_state->store(record, found.stamp);
    } catch (const StateError&) {
        throw;
    } catch (...) {
        if (m_state)
            m_state->dropInput(found.root, found.name);
        throw;
    }
    if (hasResult)
        finish(record);
    else if (m_state)
        m_state->dropInput(found.root, found.name);
}

/// Takes the result of an earlier run if it still stands.
bool CheckRun::takeStored(const FoundInput& found)
{
    const auto stored = m_state->reuse(found.root, found.name, found.path, found.stamp);
    if (!stored || isDue(found))
        return false;
    finish(*stored);
    return true;
}

/// Checks the input itself. False when it has no result: the run ends, or it changed meanwhile.
bool CheckRun::checkOpen(unsigned worker, const FoundInput& found, InputRecord& record)
{
    m_progress.begin(worker, found.path);
    {
        const bool isLimited = m_options.openInputs != 0 || found.isRotational;
        const Slot slot(isLimited ? &m_openInputs : nullptr);
        vidlint::Settings settings = m_options.settings;
        settings.cancel = &m_cancel;
        settings.progress = [&](long long done, long long) { m_progress.advance(worker, done); };
        record.report = vidlint::check(found.path, settings);
    }
    m_progress.end(worker);
    if (record.report.cancelled)
        return false;
    InputStamp now;
    if (record.report.unreadable || (Search::stampOf(found, now) && now == found.stamp))
        return true;
    const std::lock_guard lock(m_outputMutex);
    m_summary.changing = m_summary.changing.value_or(0) + 1;
    return false;
}

void CheckRun::finish(const InputRecord& record)
{
    const bool isShown = !m_options.isQuiet && (!m_options.onlyNew || record.change == Change::kNew);
    std::string text;
    if (isShown)
        text = m_options.isJson ? toJson(record) + "\n" : linesOf(record, m_hasColor);
    const std::lock_guard lock(m_outputMutex);
    m_summary.add(record);
    m_summary.failed = m_summary.failed.value_or(0) + m_options.failOn.matches(record);
    if (!text.empty())
        std::fwrite(text.data(), 1, text.size(), stdout);
}

void CheckRun::print(const std::string& text)
{
    const std::lock_guard lock(m_outputMutex);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void CheckRun::warn(const std::string& sentence)
{
    const std::lock_guard lock(m_outputMutex);
    m_problems = true;
    const std::string text = "vidlint-archive: " + escaped(sentence) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
}

int CheckRun::endRun()
{
    if (m_hasFailed)
        throw StateError(m_failure);
    m_summary.search = m_search.counts();
    m_summary.complete = !m_cancel && !m_isOutOfTime;
    if (m_state && m_summary.complete) {
        std::vector<std::string> kept;
        for (const SearchOptions::Root& root : m_options.search.roots) {
            if (m_search.foundBelow(root.label) == 0 && m_state->knownBelow(root.label) != 0) {
                warn(root.path + ": there are no inputs any more; nothing is counted as gone");
                kept.push_back(root.label);
            } else if (!m_search.isComplete(root.label)) {
                kept.push_back(root.label);
            }
        }
        m_state->endRun(kept);
    }
    if (m_options.isJson)
        print(summaryJson(m_summary) + "\n");
    else if (!m_options.isQuiet)
        print(summaryText(m_summary));
    if (std::fflush(stdout) != 0) {
        warn("the results cannot be written");
        return kStatusUsage;
    }
    if (m_problems)
        return kStatusUsage;
    if (m_summary.failed.value_or(0) != 0)
        return kStatusFound;
    return m_summary.unreadable != 0 ? kStatusUnreadable : kStatusFine;
}

}  // namespace archive
