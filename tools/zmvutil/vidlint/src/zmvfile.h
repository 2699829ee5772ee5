// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRData.h"
#include "server/SRMessage.h"
#include "tools/zmvutil/vidlint/src/filefix.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"

#include <array>
#include <vector>

class CorrectedCopy;

/// A ZMV file (see zmvformat.h) as an input of a job.
///
/// The file is scanned once, message by message. Repairs that the checks ask for are kept as FileFix records,
/// by their place in the input, and spliced into the copy afterwards. The input itself is never written.
class ZmvFile : public VideoFile
{
public:
    /// Throws kFileNotFound, kCannotOpenFile.
    ZmvFile(const SRString& path, krx::streams::VideoValidationParameters parameters);
    ~ZmvFile() override;

    void parse() override;
    void applyFixes() override;
    void logSuccess() override;

private:
    /// No read may be larger, and no stretch that is copied unchanged.
    static constexpr krx::util::FilePos kMaxReadSize = 0x80000000;

    // Reading, at the current position.
    void read(void* buffer, krx::util::FilePos size);
    unsigned long long readUnsigned(unsigned n);
    bool skipTo(krx::util::FilePos offset) { return m_file.seek(offset); }
    bool skip(krx::util::FilePos delta) { return m_file.seek(curPos() + delta); }
    krx::util::FilePos curPos() const { return m_file.position(); }
    SRMessageHeader readMessageHeader();

    // The passes over the file.
    void checkZmvHeader();
    void computeDuration();
    void checkZmvBody();
    void validateFlags();
    void verifyHasMetaData();

    // One message.
    static void compareMsgSize(unsigned found, unsigned expected);
    unsigned getPrevTimeStamp(const SRMessageHeader& header) const;
    void setPrevTimeStamp(const SRMessageHeader& header);
    /// payload: header.length bytes; null for messages that are not inspected.
    void validateSRMessage(const SRMessageHeader& header, const unsigned char* payload);
    void checkSRMsgIDType(unsigned type);
    void handlePlayerVideoStall(const SRMessageHeader& header);
    void validateDataMessage(const SRMessageHeader& header, const unsigned char* payload);

    static bool isMetaDataName(const char* name);
    // Metadata. Null is no list; argType is the kind of the list.
    void validateMetadata(const SRMessageHeader& header, const SRDataArray* list, int argType);
    SRMessagePtr getDefaultMetaData();
    void correctFlag(unsigned flag, bool seen, krx::streams::ParseStatus notSet,
                     krx::streams::ParseStatus setWithoutMessages);

    // Requests for repairs.
    void fixAddSilenceMessage(unsigned timestamp);
    void fixMetaData(const SRMessagePtr& message, SRMessageHeader header);
    void addMetaData(const SRMessagePtr& message, krx::util::FilePos position);
    void addMessageFix(krx::util::FilePos position, krx::util::FilePos replaceLength,
                       const SRMessageHeader& header, const unsigned char* payload);

    /// Copies from the current position.
    void copyTo(krx::util::FilePos end, CorrectedCopy& copy);

    ZmvReader m_file;
    krx::util::FilePos m_fileLength;
    SRString m_newFilePath;
    bool m_newFileWritten = false;
    std::vector<FileFix> m_fixes;  ///< in the order of request
    krx::util::FilePos m_messagePos = 0;
    std::array<unsigned char, 3> m_signature{};
    unsigned char m_version = 0;
    unsigned m_flags = 0;
    unsigned m_headerLength = 0;
    double m_duration = 0;  ///< seconds, the start of the last message
    bool m_hasMetaData = false;
    bool m_audioSeen = false;
    bool m_videoSeen = false;

    // Tracking of stalls. Times in ms.
    bool m_audioActive = false;
    unsigned m_lastAudioTime = 0;
    unsigned m_audioSpacing = 500;

    unsigned m_prevAudioTime = 0;
    unsigned m_prevVideoTime = 0;
    unsigned m_prevDataTime = 0;
};
