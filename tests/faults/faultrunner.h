// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/tempdir.h"

#include <map>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace krx::test {

/// The kinds of input that a fault strikes. Each is valid; the film is one that a repair copies.
enum class Victim
{
    kFilm,
    kMovie,
    kRecording
};

/// One run of the program.
struct FaultRun
{
    std::string fault{};             ///< as tests/faults/preload.cpp takes it; empty: none
    std::string output{};            ///< device that takes standard output; empty: it is kept
    bool withoutReader = false;      ///< standard output is a pipe that nobody reads
    bool withoutOutput = false;      ///< standard output is closed
    std::map<int, rlim_t> limits{};  ///< by resource
};

struct Outcome
{
    int status = -1;  ///< of the exit
    int signal = 0;   ///< that ended the process
    std::string report;
    std::string errors;                          ///< standard error
    std::map<std::string, unsigned long> calls;  ///< that a fault could have struck, by name
    unsigned long peak = 0;                      ///< the most bytes that were resident
};

/// A directory with a victim and another valid input. Runs the program over both, with repairs.
class FaultRunner
{
public:
    explicit FaultRunner(Victim victim);

    /// Restores the inputs and removes any copy.
    void restore();
    Outcome run(const FaultRun& how, const std::vector<std::string>& options = {"-nms"});

    /// How many of the two inputs have a passed line.
    int passed(const Outcome& outcome) const;
    /// Checks what holds after any fault: the process ended by itself, standard error is empty, the other
    /// input passed. The victim passed, or was counted as invalid with at most one numbered line.
    /// Returns that number, 0 when it passed, -1 when it has no line.
    int verdict(const Outcome& outcome);
    /// Checks that the input is unchanged. A file with the copy's name is the whole copy or does not look
    /// like one.
    void expectNoHarm();
    bool hasWholeCopy() { return dir.read("in/victim.zmv.new") == m_copy; }

    /// The film's corrected copy.
    void setCopy(const std::string& bytes) { m_copy = bytes; }

    TempDir dir;
    const Victim kind;
    const std::string path;  ///< of the victim
    std::string target;      ///< the file that is changed while it is read; the victim or a part of it

private:
    std::map<std::string, std::string> m_files;  ///< content by name
    std::string m_copy;
};

}  // namespace krx::test
