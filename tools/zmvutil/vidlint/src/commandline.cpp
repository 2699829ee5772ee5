// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/commandline.h"

#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/stdstreams.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <boost/any.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <locale>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace po = boost::program_options;

namespace {

constexpr std::string_view kProgramName = "Vidlint";
constexpr std::string_view kVersion = "version 2.0";
constexpr std::string_view kDescription = "Utility to validate zmv and mp4 media files.";
constexpr std::string_view kOwnership = "Copyright (C) 2026 The vidlint authors.";
constexpr std::string_view kOwnership2 = "All rights reserved.";

constexpr std::string_view kExample =
    "Example Usage:\n\n"
    "    vidlint -f abc123.zmv ../test/xyz456.zmv\n"
    "\tInspects two files returning:\n"
    "\t\"0\" for no errors found\n"
    "\t\"1\" for one error found\n"
    "\t\"2\" if both files were invalid.\n\n"
    "    vidlint -m -f ../abc123.zmv\n"
    "\tInspects and creates a new file (../abc123.zmv.new)\n"
    "\tif invalid metadata was detected.\n";

/// A number of seconds on the command line. A type of its own, since a negative number read as a plain
/// unsigned one would become a huge margin instead of an error.
struct Seconds
{
    unsigned value;
};

std::ostream& operator<<(std::ostream& out, const Seconds& seconds)
{
    return out << seconds.value;
}

/// Found by the options library for options of type Seconds.
void validate(boost::any& target, const std::vector<std::string>& tokens, Seconds* /*type*/, int /*overload*/)
{
    po::validators::check_first_occurrence(target);
    const std::string& token = po::validators::get_single_string(tokens);
    unsigned seconds = 0;
    if (token[0] == '-' || !boost::conversion::try_lexical_convert(token, seconds))
        throw po::invalid_option_value(token);
    target = Seconds{seconds};
}

void writeBanner(std::ostream& out)
{
    out << '\n'
        << kProgramName << ' ' << kVersion << " - " << kDescription << '\n'
        << kOwnership << '\n'
        << kOwnership2 << "\n\n";
}

void writeHelp(std::ostream& out, const po::options_description& options)
{
    writeBanner(out);
    out << kProgramName << " returns the number of invalid plume media files.\n\n"
        << "Usage: " << kProgramName << " [OPTION]... [FILE]...\n\n"
        << options << '\n';
}

/// Whether the argument is complete by itself: a name, a value, a switch, or an option with its value.
bool isComplete(const std::string& argument, const po::options_description& options)
{
    const auto takesValue = [](const po::option_description& option) {
        return option.semantic()->max_tokens() > 0;
    };
    if (argument.rfind("--", 0) == 0) {
        // An option may be abbreviated.
        const std::string name = argument.substr(2);
        return argument.find('=') != std::string::npos ||
               std::none_of(options.options().begin(), options.options().end(), [&](const auto& option) {
                   return takesValue(*option) && option->long_name().rfind(name, 0) == 0;
               });
    }
    if (argument.rfind('-', 0) != 0)
        return true;
    // Letters are switches, up to one that takes the rest of the argument, or the next one, as its value.
    for (std::size_t i = 1; i < argument.size(); ++i) {
        const auto* const option = options.find_nothrow(std::string("-") + argument[i], false);
        if (!option || takesValue(*option))
            return i + 1 < argument.size() || !option;
    }
    return true;
}

/// Parses the arguments part by part, since the library's time grows with the square of what it is given at
/// once. A part ends after a complete argument; the last one begins before "--".
po::parsed_options parse(const std::vector<std::string>& arguments, const po::options_description& options)
{
    constexpr std::ptrdiff_t kPart = 64;
    po::positional_options_description positional;
    positional.add("file", -1);
    po::parsed_options parsed(&options, po::command_line_style::allow_long);  // how messages name an option
    const auto terminator = std::find(arguments.begin(), arguments.end(), "--");
    for (auto part = arguments.begin(); part != arguments.end();) {
        auto end = part + std::min(kPart, terminator - part);
        while (end < terminator && !isComplete(*(end - 1), options))
            ++end;
        if (end == terminator)
            end = arguments.end();
        const auto more = po::command_line_parser(std::vector<std::string>(part, end))
                              .options(options)
                              .positional(positional)
                              .run();
        parsed.options.insert(parsed.options.end(), more.options.begin(), more.options.end());
        part = end;
    }
    return parsed;
}

bool processOptions(const std::vector<std::string>& arguments, VideoValidationJob& job, std::ostream& out)
{
    bool verbose = false;
    bool noBanner = false;
    bool warnings = false;
    Seconds durationMargin{job.parameters.durationMargin};

    po::options_description options("Available Options:");
    auto add = options.add_options();
    add("help,h", "show help message");
    add("usage,u", "display example usage");
    add("version,V", "print version string");
    add("verbose,v", po::bool_switch(&verbose), "turn on verbose output");
    add("nobanner,n", po::bool_switch(&noBanner), "turn off header");
    add("quiet,q", "turn off the text output");
    add("warnings,w", po::bool_switch(&warnings), "display warnings");
    add("warnings_as_errors,W", po::bool_switch(&job.parameters.warningsAsErrors),
        "treat warnings as errors");
    add("file,f", po::value<std::vector<std::string>>(), "plume media files to validate");
    add("duration_margin,d", po::value<Seconds>(&durationMargin)->default_value(durationMargin),
        "allowable deviation (in seconds)");
    add("fixmeta,m", po::bool_switch(&job.parameters.fixMetaData), "update metadata (ZMV only)");
    add("fixvideostall,s", po::bool_switch(&job.parameters.fixVideoStall),
        "fix a stall in video playback (ZMV only)");

    po::variables_map values;
    po::store(parse(arguments, options), values);
    po::notify(values);

    if (values.count("help") != 0 || arguments.empty()) {
        writeHelp(out, options);
        return false;
    }
    if (values.count("quiet") != 0) {
        job.report.silence();
        closeStandardOutput();
    }
    if (!noBanner || values.count("version") != 0)
        writeBanner(out);
    if (values.count("usage") != 0)
        out << kExample;
    if (values.count("file") != 0)
        job.files = values["file"].as<std::vector<std::string>>();

    job.parameters.durationMargin = durationMargin.value;
    if (verbose)
        job.parameters.logLevel = krx::streams::LOG_INFO;
    else if (warnings)
        job.parameters.logLevel = krx::streams::LOG_WARNING;
    return true;
}

/// A byte that is in none of the texts and means nothing in an option; '\1' when there is none.
char unusedByte(const std::vector<std::string>& texts)
{
    for (char byte = '\1'; byte < ' '; ++byte) {
        const auto holds = [byte](const std::string& text) { return text.find(byte) != std::string::npos; };
        if (std::none_of(texts.begin(), texts.end(), holds))
            return byte;
    }
    return '\1';
}

/// The message of an error in the arguments. The options library replaces names like "%option%" until none is
/// left. With one in an argument this never ends, so the library gets no percent signs.
std::string optionError(const std::exception& error, std::vector<std::string> arguments)
{
    const auto holdsPercent = [](const std::string& argument) {
        return argument.find('%') != std::string::npos;
    };
    if (std::none_of(arguments.begin(), arguments.end(), holdsPercent))
        return error.what();
    const char mask = unusedByte(arguments);
    for (std::string& argument : arguments)
        std::replace(argument.begin(), argument.end(), '%', mask);
    try {
        ReportWriter nobody([](std::string_view) { return true; });
        VideoValidationJob unused(nobody);
        std::ostringstream nowhere;
        processOptions(arguments, unused, nowhere);
    } catch (const std::exception& masked) {
        std::string message = masked.what();
        std::replace(message.begin(), message.end(), mask, '%');
        return message;
    }
    return error.what();  // not an error of the options: that would have come again
}

}  // namespace

bool processCmdLineArgs(int argc, char** argv, VideoValidationJob& job)
{
    try {
        const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
        std::ostringstream out;
        out.imbue(std::locale::classic());
        out.exceptions(std::ios_base::badbit);  // without memory the text would be lost silently
        bool run = false;
        try {
            run = processOptions(arguments, job, out);
        } catch (const std::exception& error) {
            const std::string_view invocation = argc > 0 ? argv[0] : "";
            out << invocation << ":  " << optionError(error, arguments) << "\nTry '" << invocation
                << " --help' for more information.\n";
        }
        job.report.write(out.str());
        return run;
    } catch (...) {
        (void)writeStandardError("Exception of unknown type!\n");
        return false;
    }
}
