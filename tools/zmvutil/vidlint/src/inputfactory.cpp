// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/inputfactory.h"

#include "interfaces/IKrxFileIo.h"
#include "modules/streams/streamparseerror.h"
#include "tools/zmvutil/vidlint/src/checksink.h"
#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "util/SRStrUtil.h"

#include <cerrno>
#include <cstddef>
#include <new>
#include <string_view>

using krx::streams::FindingLevel;
using krx::streams::StreamParseError;

namespace {

constexpr const char* kZmvExtension = ".zmv";

/// The text from the last dot of the last component on; empty without one. A name may consist of its
/// extension.
const char* extensionOf(const SRMBString& path)
{
    const std::string_view bytes = path.view();
    const std::size_t dot = bytes.rfind('.');
    const bool inLastComponent =
        dot != std::string_view::npos && bytes.find('/', dot) == std::string_view::npos;
    return inLastComponent ? path.c_str() + dot : "";
}

void addError(CheckSink& sink, const StreamParseError& error)
{
    sink.add(makeFinding(error, FindingLevel::kError));
}

}  // namespace

vidlint::InputKind kindOfInput(const SRString& path, const CheckEnvironment& environment)
{
    struct stat64 status = {};
    if (environment.io.stat(path, &status, IKrxFileIo::kAny) < 0) {
        // What does not exist is refused later, by its kind.
        if (errno != ENOENT && errno != ENOTDIR)
            throw StreamParseError(krx::streams::kInvalidPath);
    } else if (S_ISDIR(status.st_mode)) {
        return vidlint::InputKind::kRecording;
    }
    const bool isZmv = SRStrUtil::compareNoCase(extensionOf(path.toMultiByte()), kZmvExtension) == 0;
    return isZmv ? vidlint::InputKind::kZmv : vidlint::InputKind::kMp4;
}

std::shared_ptr<VideoFile> getVideoFile(vidlint::InputKind kind, const SRString& path,
                                        krx::streams::VideoValidationParameters parameters,
                                        const CheckEnvironment& environment)
{
    switch (kind) {
        case vidlint::InputKind::kRecording:
            return std::make_shared<VideoFile>(path, parameters, environment);
        case vidlint::InputKind::kZmv:
            return std::make_shared<ZmvFile>(path, parameters, environment);
        case vidlint::InputKind::kMp4:
            break;
    }
    return std::make_shared<MP4FileWrapper>(path, parameters, environment);
}

InputEnd runInput(CheckSink& sink, const std::function<void()>& steps)
{
    InputEnd end = InputEnd::kRefused;
    try {
        try {
            steps();
            return InputEnd::kPassed;
        } catch (const krx::util::Cancelled&) {
            end = InputEnd::kCancelled;
        } catch (const StreamParseError& error) {
            addError(sink, error);
        } catch (const krx::util::FileReadException&) {
            addError(sink, StreamParseError(krx::streams::kFileReadError));
        } catch (const SROutOfMemory&) {
            end = InputEnd::kOutOfMemory;
            addError(sink, StreamParseError(krx::streams::kUnknownError));
        } catch (const SRThrowable&) {
            addError(sink, StreamParseError(krx::streams::kUnknownError));
        }
    } catch (const std::bad_alloc&) {
        return InputEnd::kOutOfMemory;
    } catch (const SROutOfMemory&) {
        return InputEnd::kOutOfMemory;
    } catch (...) {
        // The finding is there already.
    }
    return end;
}
