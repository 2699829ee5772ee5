// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/vidlint/src/report.h"

#include <string>

namespace krx::test {

/// The rules of checking and repairing ZMV files, which hold for any bytes:
///
/// - An announced copy passes again, with every set of repair options; the options that made it find nothing
///   more to repair.
/// - What passes without a repair option is not rejected with one, unless the copy cannot be written.
/// - Listings and traces change neither verdict nor warnings nor copy.
/// - The input stays as it is.
///
/// The current directory and the error trace of the process are in use during a check.
class RepairRules
{
public:
    RepairRules();
    RepairRules(const RepairRules&) = delete;
    RepairRules& operator=(const RepairRules&) = delete;

    /// Returns a text that names the broken rule, empty when all hold for the file under the parameters.
    /// Their log level does not matter.
    std::string broken(const std::string& file, streams::VideoValidationParameters parameters);

    unsigned copies = 0;  ///< that were made and checked so far

private:
    enum class Shown
    {
        kLittle,  ///< warnings
        kAll      ///< the listing, and the error trace of the directory "logs"
    };
    struct Outcome
    {
        int number = 0;  ///< of the finding that rejected the file; 0 when it passed, -1 when it has no line
        std::string warnings;
        bool hasCopy = false;
        std::string copy;

        bool operator==(const Outcome&) const = default;
    };

    Outcome check(const std::string& file, const streams::VideoValidationParameters& parameters, Shown shown);
    std::string brokenByCopy(const std::string& copy, streams::VideoValidationParameters parameters);

    TempDir m_dir;
    std::string m_report;
    ReportWriter m_writer;
    std::string m_problem;  ///< of a single check
};

}  // namespace krx::test
