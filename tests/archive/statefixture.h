// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/tempdir.h"
#include "tools/zmvutil/archive/src/state.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace krx::test {

/// Some outcomes of a check.
enum Kind
{
    kSound,
    kWarned,
    kCut,
    kUnreadable,
    kCrashed,
    kKinds,
};

inline archive::InputRecord makeRecord(const std::string& root, const std::string& name, Kind kind)
{
    archive::InputRecord record;
    record.root = root;
    record.name = name;
    record.crashed = kind == kCrashed;
    vidlint::InputReport& report = record.report;
    report.path = "/media/" + root + "/" + name;
    report.verdict = kind <= kWarned ? vidlint::Verdict::kValid : vidlint::Verdict::kInvalid;
    report.unreadable = kind == kUnreadable;
    if (kind == kCut)
        report.cause = vidlint::Cause::kCutShort;
    if (kind == kWarned || kind == kCut) {
        vidlint::Finding finding;
        finding.number = kind == kCut ? -18 : -110;
        report.findings.assign(2, finding);
    }
    return record;
}

inline archive::RunInfo makeRun(std::vector<std::string> roots)
{
    archive::RunInfo run;
    run.startedAt = 1000;
    run.settings = "DurationMargin=2";
    run.revision = 1;
    run.roots = std::move(roots);
    return run;
}

/// What a function throws as a StateError; empty when it does not.
template <typename Function>
std::string stateError(Function function)
{
    try {
        function();
    } catch (const archive::StateError& error) {
        return error.what();
    }
    return {};
}

/// Runs a function in a process of its own, which then ends without any clean-up. Returns the status that it
/// returned; -1 when the process was killed.
template <typename Function>
int inChild(Function function)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(function());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// A state with a run that has ended over a few inputs below "a".
inline void makeState(const std::string& path, int inputs)
{
    archive::State state(path, archive::State::Mode::kWrite);
    state.beginRun(makeRun({"a"}));
    for (int i = 0; i < inputs; ++i) {
        auto record = makeRecord("a", "input-" + std::to_string(i), static_cast<Kind>(i % kKinds));
        state.store(record, {i, i, 0});
    }
    state.endRun({});
}

/// Everything that a state has to say.
inline int countInputs(const std::string& path)
{
    archive::State state(path, archive::State::Mode::kRead);
    state.lastRun();
    state.hasUnfinishedRun();
    state.totals();
    int n = 0;
    state.forEach([&](const archive::InputRecord&) { return ++n > 0; });
    return n;
}

}  // namespace krx::test
