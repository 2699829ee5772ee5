// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "vidlint/check.h"

#include "server/KRXSyncFileIo.h"
#include "server/watchedfileio.h"
#include "tools/zmvutil/vidlint/src/cause.h"
#include "tools/zmvutil/vidlint/src/inputfactory.h"
#include "tools/zmvutil/vidlint/src/reportcollector.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "util/autofile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace vidlint {
namespace {

/// Enough to know a format by.
constexpr std::size_t kFirstBytes = 4096;

/// One run of check: fills the report step by step.
class Check
{
public:
    Check(const std::string& path, const Settings& settings, InputReport& report)
        : m_settings(settings),
          m_report(report),
          m_path(SRString::fromMultiByte(path)),
          m_io(m_systemIo, settings.cancel, observer()),
          m_sink(report, settings.maxFindings, m_io)
    {
        m_report.path = path;
    }

    void run()
    {
        const CheckEnvironment environment{m_sink, m_io, &m_settings.serverSettings(),
                                           m_settings.memory.get(), m_settings.cancel};
        std::shared_ptr<VideoFile> input;
        const InputEnd end = runInput(m_sink, [&] {
            m_report.kind = kindOfInput(m_path, environment);
            measure();
            input = getVideoFile(m_report.kind, m_path, parameters(), environment);
            input->parse();
        });
        m_report.verdict = end == InputEnd::kPassed ? Verdict::kValid : Verdict::kInvalid;
        const InputEnd endOfFacts = describe(input.get());
        const auto isEither = [&](InputEnd reason) { return end == reason || endOfFacts == reason; };
        CauseFacts facts;
        facts.systemError = m_io.failure();
        facts.outOfMemory = isEither(InputEnd::kOutOfMemory) || facts.systemError == ENOMEM;
        std::array<unsigned char, kFirstBytes> firstBytes;
        if (m_report.verdict == Verdict::kInvalid && m_report.kind != InputKind::kRecording)
            facts.firstBytes = std::span(firstBytes.data(), readFirst(firstBytes));
        settleCause(m_report, facts);
        m_report.cancelled = m_io.wasCancelled() || isEither(InputEnd::kCancelled);
        if (m_settings.progress && !m_report.cancelled)
            m_settings.progress(m_total, m_total);
    }

private:
    krx::streams::VideoValidationParameters parameters() const
    {
        krx::streams::VideoValidationParameters parameters;
        parameters.durationMargin = m_settings.durationMargin;
        parameters.warningsAsErrors = m_settings.warningsAsErrors;
        parameters.fixMetaData = m_settings.fixMetaData;
        parameters.fixVideoStall = m_settings.fixVideoStall;
        return parameters;
    }

    /// Takes size and identity of the input as they are before the check.
    void measure()
    {
        struct stat64 status = {};
        if (m_io.stat(m_path, &status, IKrxFileIo::kAny) < 0)
            return;
        m_report.identity = {status.st_dev, status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
        m_report.size = status.st_size;
        if (m_report.kind == InputKind::kRecording)
            m_report.size = sizeOfFolder();
        m_total = *m_report.size;
    }

    /// Bytes of the files in the folder; those that cannot be asked have none.
    long long sizeOfFolder() const
    {
        long long size = 0;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(openFolder(), ::closedir);
        while (const dirent* const entry = folder ? ::readdir(folder.get()) : nullptr) {
            struct stat64 status = {};
            if (::fstatat64(::dirfd(folder.get()), entry->d_name, &status, 0) == 0 && S_ISREG(status.st_mode))
                size += status.st_size;
        }
        return size;
    }

    /// The folder of a recording, whose time of access is left alone where the system allows it. Null on
    /// errors.
    DIR* openFolder() const
    {
        constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
        int fd = ::open(m_report.path.c_str(), kFlags | O_NOATIME);
        if (fd < 0 && errno == EPERM)
            fd = ::open(m_report.path.c_str(), kFlags);
        DIR* const folder = fd < 0 ? nullptr : ::fdopendir(fd);
        if (!folder && fd >= 0)
            ::close(fd);
        return folder;
    }

    /// What is known besides the findings. Where that fails, it stays as far as it is.
    InputEnd describe(VideoFile* input)
    {
        if (!input)
            return InputEnd::kRefused;
        struct Nobody : CheckSink
        {
            bool admitsWarning() override { return false; }
            void add(const Finding&) override {}
        } nobody;
        const InputEnd end = runInput(nobody, [&] { input->describe(m_report); });
        for (const Track& track : m_report.tracks)
            if (track.plays && track.playsUntil)
                m_report.playsUntil =
                    std::min(*track.playsUntil, m_report.playsUntil.value_or(*track.playsUntil));
        return end;
    }

    std::size_t readFirst(std::span<unsigned char> bytes)
    {
        const IoAutoFile file(&m_io, m_path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0, nullptr);
        struct stat64 status = {};
        if (m_io.fstat(file.get(), &status, IKrxFileIo::kFile) < 0 || !S_ISREG(status.st_mode))
            return 0;
        const int n = m_io.read(file.get(), 0, bytes.data(), static_cast<unsigned>(bytes.size()));
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    }

    WatchedFileIo::Progress observer()
    {
        if (!m_settings.progress)
            return {};
        return [this](long long n, long long end) { tellProgress(n, end); };
    }

    /// n bytes were read, up to the offset end in their file.
    void tellProgress(long long n, long long end)
    {
        const long long done = m_report.kind == InputKind::kRecording ? m_done + n : end;
        m_done = std::min(std::max(m_done, done), m_total);
        m_settings.progress(m_done, m_total);
    }

    const Settings& m_settings;
    InputReport& m_report;
    const SRString m_path;
    SimpleKrxSyncFileIo m_systemIo;
    WatchedFileIo m_io;
    ReportCollector m_sink;
    long long m_done = 0;
    long long m_total = 0;
};

}  // namespace

InputReport check(const std::string& path, const Settings& settings)
{
    InputReport report;
    try {
        Check(path, settings, report).run();
    } catch (const SROutOfMemory&) {
        throw std::bad_alloc();
    }
    return report;
}

}  // namespace vidlint
