// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/messagedump.h"

#include "server/datatext.h"
#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/bigendian.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace krx::util {

namespace {

struct NumberName
{
    int number;
    const char* name;
};

constexpr std::array kMessageTypes{
    NumberName{kMsgUserCtrl, "kMsgUserCtrl"},
    NumberName{kMsgVirtualUserControl, "kMsgVirtualUserControl"},
    NumberName{kMsgAudio, "kMsgAudio"},
    NumberName{kMsgVideo, "kMsgVideo"},
    NumberName{kMsgDataEx, "kMsgDataEx "},
    NumberName{kMsgContainerEx, "kMsgContainerEx"},
    NumberName{kMsgCmdEx, "kMsgCmdEx"},
    NumberName{kMsgData, "kMsgData"},
    NumberName{kMsgContainer, "kMsgContainer "},
    NumberName{kMsgCmd, "kMsgCmd"},
    NumberName{kMsgUDP, "kMsgUDP"},
    NumberName{kMsgAggregate, "kMsgAggregate"},
    NumberName{kMsgPresent, "kMsgPresent"},
};

// Indexed by the event's number.
constexpr std::array kUserControlEvents{
    "kMsgStreamBegin",
    "kMsgStreamEOF",
    "kMsgStreamDry",
    "kMsgSetBufferLen",
    "kMsgStreamIsRecorded",
    "kMsgStreamIsLive",
    "kMsgPingRequest",
    "kMsgPingResponse",
    "kMsgUDPRequest",
    "kMsgUDPResponse",
    "kMsgSetBWLimit",
    "kMsgSetBW",
    "kMsgThrottleBW",
    "kMsgStreamCreated",
    "kMsgStreamDeleted",
    "kMsgSetReadAccess",
    "kMsgSetWriteAccess",
    "kMsgStreamMetaRequest",
    "kMsgStreamMetaUpdate",
    "kMsgGetSegmentBoundary",
    "kMsgSetSegmentBoundary",
    "kMsgOnDisconnect",
    "kMsgSetCriticalLink",
    "kMsgDisconnect",
    "kMsgHashUpdate",
    "kMsgHashTimeout",
    "kMsgQpxHashReq",
    "kMsgQpxHashResp",
    "kMsgCheckBW",
    "kMsgSetAudioSampleAccess",
    "kMsgSetVideoSampleAccess",
    "kMsgThrottleBegin",
    "kMsgThrottleEnd",
    "kMsgDRMNotify",
    "kMsgRtmfpSync",
    "kMsgQueryIHello",
    "kMsgForwardIHello",
    "kMsgRedirectIHello",
    "kMsgNotifyEOF",
    "kMsgProxyContinue",
    "kMsgProxyRemovedUpstream",
    "kMsgRtmfpSetKeepalives",
};

constexpr std::array kEncodings{
    NumberName{SRDataParser::kAMF0, "kEncodingAMF0"},
    NumberName{SRDataParser::kAMF3, "kEncodingAMF3"},
};

constexpr std::array kSoundFormats{
    NumberName{0, "kSndCompressNone"},   NumberName{1, "kSndCompressADPCM"},
    NumberName{2, "kSndCompressMP3"},    NumberName{3, "kSndCompressNoneI"},
    NumberName{4, "kSndCompressUnused"}, NumberName{5, "kSndCompressNelly8"},
    NumberName{6, "kSndCompressNelly"},  NumberName{7, "kSndCompressG711A"},
    NumberName{8, "kSndCompressG711U"},  NumberName{9, "kSndCompressNelly16"},
    NumberName{10, "kSndCompressAAC"},   NumberName{11, "kSndCompressSpeex"},
};

// Indexed by the low four bits of an audio body's first byte: rate (2), 16 bits, stereo.
constexpr std::array kSoundRates{
    "kSnd5K8Mono",  "kSnd5K8Stereo",  "kSnd5K16Mono",  "kSnd5K16Stereo",
    "kSnd11K8Mono", "kSnd11K8Stereo", "kSnd11K16Mono", "kSnd11K16Stereo",
    "kSnd22K8Mono", "kSnd22K8Stereo", "kSnd22K16Mono", "kSnd22K16Stereo",
    "kSnd44K8Mono", "kSnd44K8Stereo", "kSnd44K16Mono", "kSnd44K16Stereo",
};

// Indexed by the low four bits of a video body's first byte.
constexpr std::array kVideoCodecs{
    "kVideoCodecUnused", "kVideoCodecJPEG",     "kVideoCodecSorenson",   "kVideoCodecHomebrew",
    "kVideoCodecVP6",    "kVideoCodecVP6Alpha", "kVideoCodecHomebrewV2", "kVideoCodecH264",
};

constexpr char kNoName[] = "unknown";

template <std::size_t N>
const char* nameOf(const std::array<NumberName, N>& names, int number)
{
    const auto found = std::find_if(names.begin(), names.end(),
                                    [number](const NumberName& n) { return n.number == number; });
    return found == names.end() ? kNoName : found->name;
}

template <std::size_t N>
const char* nameOf(const std::array<const char*, N>& names, unsigned number)
{
    return number < N ? names[number] : kNoName;
}

std::string controlText(const SRMessagePtr& message)
{
    constexpr unsigned kEventBytes = 2;
    const unsigned length = message->getBodyLength();
    std::string text = " ctrlMsgType=";
    if (length >= kEventBytes)
        text += nameOf(kUserControlEvents, krx::util::loadBig16(message->getBody()));
    else
        text += kNoName;
    return text + " " + std::string(SRStrUtil::formatBuffer(message->getBody(), length).toMultiByte().view());
}

std::string commandText(const SRMessagePtr& message)
{
    try {
        const SRCommand command(message, true);
        const int encoding = message->getPlainType() == kMsgCmdEx ? SRDataParser::kAMF3 : SRDataParser::kAMF0;
        std::string text;
        DataText out(SRData::kMaxTextBytes, DataText::into(text), DataText::Style::kTyped);
        out.add(" trxId=").add(std::to_string(static_cast<int>(command.getTrxID())));
        out.add(" encoding=").add(nameOf(kEncodings, encoding));
        out.add(" cmdData=(").add(command.getCommandData()).add(")");
        for (int i = 0; i < command.argCount() && !out.isFull(); ++i)
            out.add(" arg").add(std::to_string(i)).add("=(").add(command.getArg(i)).add(")");
        return text;
    } catch (const SRBreakConnection&) {
        return " BAD_PARSE";
    }
}

std::string contentText(const SRMessagePtr& message)
{
    const bool hasBody = message->getBodyLength() > 0;
    const unsigned first = hasBody ? message->getBody()[0] : 0;
    switch (message->getPlainType()) {
        case kMsgUserCtrl:
        case kMsgVirtualUserControl:
            return controlText(message);
        case kMsgAudio:
            if (!hasBody)
                return "";
            return std::string(" codec=") + nameOf(kSoundFormats, static_cast<int>(first >> 4)) +
                   " format=" + nameOf(kSoundRates, first & 0x0F);
        case kMsgVideo:
            return hasBody ? std::string(" codec=") + nameOf(kVideoCodecs, first & 0x0F) : "";
        case kMsgCmdEx:
        case kMsgData:
        case kMsgCmd:
            return commandText(message);
        default:
            return "";
    }
}

}  // namespace

SRMBString messageToString(const SRMessagePtr& message)
{
    if (!message)
        return SRMBString();
    std::string text = std::string("dataType=") + nameOf(kMessageTypes, message->getPlainType());
    text += " idByte=" + std::to_string(message->getType());
    text += " streamId=" + std::to_string(message->getStreamId());
    text += " time=" + std::to_string(static_cast<int>(message->getTime()));
    return SRMBString(text + contentText(message));
}

}  // namespace krx::util
