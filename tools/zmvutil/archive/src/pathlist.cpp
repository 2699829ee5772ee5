// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/pathlist.h"

#include <cerrno>
#include <climits>
#include <stdexcept>
#include <system_error>

namespace archive {

void PathList::Closer::operator()(std::FILE* file) const
{
    if (file != stdin)
        std::fclose(file);
}

PathList::PathList(const std::string& file) : m_file(file == "-" ? stdin : std::fopen(file.c_str(), "re"))
{
    if (!m_file)
        throw std::runtime_error(file + ": the list cannot be opened (" +
                                 std::generic_category().message(errno) + ")");
}

PathList::Got PathList::next(std::string& path)
{
    path.clear();
    bool isTooLong = false;
    int byte = m_hasFailed ? EOF : ::getc_unlocked(m_file.get());
    if (byte == EOF && (m_hasFailed || std::ferror(m_file.get()) == 0))
        return Got::kEnd;
    for (; byte != EOF && byte != 0; byte = ::getc_unlocked(m_file.get())) {
        if (path.size() + 1 < PATH_MAX)
            path += static_cast<char>(byte);
        else
            isTooLong = true;
    }
    if (byte == EOF && std::ferror(m_file.get()) != 0) {
        m_hasFailed = true;
        return Got::kFailed;
    }
    if (isTooLong)
        return Got::kTooLong;
    return path.empty() ? Got::kEmpty : Got::kPath;
}

}  // namespace archive
