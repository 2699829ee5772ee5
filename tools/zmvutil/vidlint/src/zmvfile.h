// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCSerializer.h"
#include "server/SRMessage.h"
#include "tools/zmvutil/vidlint/src/correctedcopy.h"
#include "tools/zmvutil/vidlint/src/filefix.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

/// A ZMV file (see zmvformat.h) as an input of a check.
///
/// The file is scanned once, message by message. Repairs that the checks ask for are kept as FileFix records,
/// by their place in the input, and spliced into the copy afterwards. The input itself is never written. A
/// repair is requested only where the copy passes with it; any other fault is reported as without the option.
class ZmvFile : public VideoFile
{
public:
    /// Throws kFileNotFound, kCannotOpenFile.
    ZmvFile(const SRString& path, krx::streams::VideoValidationParameters parameters,
            const CheckEnvironment& environment);
    ~ZmvFile() override;

    void parse() override;
    bool hasFixes() const override { return !m_fixes.empty(); }
    SRString copyPath() const override { return m_path + L".new"; }
    void applyFixes() override;
    void describe(vidlint::InputReport& report) override;

private:
    // Reading, at the current position.
    void read(void* buffer, krx::util::FilePos size);
    unsigned long long readUnsigned(unsigned n);
    bool skipTo(krx::util::FilePos offset) { return m_file.seek(offset); }
    bool skip(krx::util::FilePos delta) { return m_file.seek(curPos() + delta); }
    krx::util::FilePos curPos() const { return m_file.position(); }
    SRMessageHeader readMessageHeader();

    // The passes over the file.
    void check();
    void checkZmvHeader();
    void computeDuration();
    void checkZmvBody();
    void validateFlags();
    void verifyHasMetaData();

    /// Passes the audio and video messages in the window that have neither a fault nor anything to report, up
    /// to the first other one.
    void passPlainMessages();

    // Findings, with their place: an offset in the file, or the message that is being checked.
    [[noreturn]] static void failAt(krx::streams::ParseStatus status, krx::util::FilePos offset);
    [[noreturn]] void failInMessage(krx::streams::ParseStatus status) const;
    krx::streams::Place placeOfMessage() const;
    void warnAt(krx::streams::ParseStatus status, krx::streams::Place place);
    void warnInMessage(krx::streams::ParseStatus status) { warnAt(status, placeOfMessage()); }

    // One message.
    unsigned getPrevTimeStamp(const SRMessageHeader& header) const;
    void setPrevTimeStamp(const SRMessageHeader& header);
    /// payload: header.length bytes; null for messages that are not inspected.
    void validateSRMessage(const SRMessageHeader& header, const unsigned char* payload);
    void checkSRMsgIDType(unsigned type) const;
    void handlePlayerVideoStall(const SRMessageHeader& header);
    /// Whether a message that is no audio comes too long after the last audio.
    bool isStall(const krx::util::RecordHeader& header) const;
    void trackAudio(const krx::util::RecordHeader& header);
    void validateDataMessage(const SRMessageHeader& header, const unsigned char* payload);
    /// Checks the message's values. True when they are to be replaced; replacement then holds the new ones.
    bool validateValues(const SRMessagePtr& message, SRCSerializer& replacement);

    // Metadata. A body has the values only, without the first byte of type 15.
    static bool isMetaDataName(const char* name);
    /// Whether the message is an onMetaData, whatever its arguments are.
    static bool isNamedMetaData(const SRMessagePtr& message);
    /// The same for the property list of an onMetaData, which is corrected in place; null is no list.
    bool validateMetadata(SRDataArray* list, SRCSerializer& replacement);
    /// Calls fault(status, index) for each examined value that is wrong, then with the index -1 for each one
    /// that is missing.
    template <typename Fault>
    void findFaults(const SRDataArray& list, Fault fault) const;
    /// The duration in the list, seconds.
    static std::optional<double> announcedDuration(const SRDataArray& list);
    void correct(SRDataArray& list, krx::streams::ParseStatus status, int index) const;
    /// Writes the metadata of a file without any.
    void putDefaultMetaData(SRCSerializer& body) const;
    /// Whether a reader accepts the body without a fault, in the memory that the replaced message may take.
    bool isSound(const SRCSerializer& body, unsigned replacedLength) const;
    void correctFlag(unsigned flag, bool seen, krx::streams::ParseStatus notSet,
                     krx::streams::ParseStatus setWithoutMessages);

    // Requests for repairs.
    /// Requests the pending silence, unless the audio that follows is earlier.
    void settleSilence(std::optional<unsigned> nextAudioTime);
    void fixAddSilenceMessage(krx::util::FilePos position, unsigned timestamp);
    void fixMetaData(const SRCSerializer& body, const SRMessageHeader& header);
    void addMetaData(const SRCSerializer& body, krx::util::FilePos position);
    /// The length in header is ignored: body gives it.
    void addMessageFix(krx::util::FilePos position, krx::util::FilePos replaceLength, SRMessageHeader header,
                       const SRCSerializer& body, const char* reason);

    ZmvReader m_file;
    krx::util::FilePos m_fileLength;
    std::unique_ptr<CorrectedCopy> m_copy;  ///< once it is begun; its file is locked as long as it is here
    std::vector<FileFix> m_fixes;           ///< in the order of request
    krx::util::FilePos m_messagePos = 0;
    unsigned m_messageTime = 0;  ///< ms
    std::array<unsigned char, 3> m_signature{};
    unsigned char m_version = 0;
    unsigned m_flags = 0;
    unsigned m_headerLength = 0;
    double m_duration = 0;       ///< seconds, the start of the last message
    bool m_hasMetaData = false;  ///< the last onMetaData has the right duration, or will have
    bool m_metaDataSeen = false;
    std::optional<double> m_announcedDuration;  ///< seconds, as the last onMetaData says
    StreamTally m_tally;
    bool m_scanned = false;  ///< all messages have been counted

    // Tracking of stalls. Times in ms.
    bool m_audioActive = false;
    unsigned m_lastAudioTime = 0;
    unsigned m_audioSpacing = 500;
    /// Silence that is to be inserted if the audio that follows it is not earlier.
    struct Silence
    {
        krx::streams::Place place;  ///< of the message before which it comes
        unsigned timestamp;
    };
    std::optional<Silence> m_silence;

    unsigned m_prevAudioTime = 0;
    unsigned m_prevVideoTime = 0;
    unsigned m_prevDataTime = 0;
};
