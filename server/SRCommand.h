// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCSerializer.h"

#include <atomic>
#include <vector>

/// A command or data message in parsed form: a method name, a transaction id, command data and arguments. A
/// command made by default is filled in and serialized; the others are parsed. "onMetaData" is a data message
/// with one argument, an array of named values.
///
/// Values are copies and need neither the message nor the command. What sets or copies them throws
/// SROutOfMemory. Several threads may read a command; one that changes it must be alone.
class SRCommand : public SRCSerializer
{
public:
    /// Number of a method name that the command table knows.
    enum Number : int
    {
        kCmdUnknown = 0,
        kCmdGetStats,
        kCmdCloseStream,
        kCmdConnect,
        kCmdCreateStream,
        kCmdDeleteStream,
        kCmdInitStream,
        kCmdLoadSegment,
        kCmdOnMCastJoin,
        kCmdOnStatus,
        kCmdPause,
        kCmdPauseRaw,
        kCmdPlay,
        kCmdPlay2,
        kCmdPublish,
        kCmdReceiveAudio,
        kCmdReceiveVideo,
        kCmdSeek,
        kCmdSeekRaw,
        kCmdSetFarAddress,
        kCmdSetPeerInfo,
        kCmdStartTransmit,
        kCmdStopTransmit,
    };

    /// When set, every parsing command treats bad data as in strict mode inside; its own flag still decides
    /// whether the caller sees the exception.
    static std::atomic<bool> gLogCommandParserError;

    /// An empty writer.
    SRCommand();
    /// Copies the values; the copy is a writer.
    SRCommand(const SRCommand& other);
    SRCommand& operator=(const SRCommand&) = delete;
    /// Parses length bytes of a body as they are; they must not begin with the leading byte of AMF3 messages.
    /// type: 20 and 17 are commands, 18 and 15 data. With throwFlag malformed data throws SRBreakConnection
    /// 1029; without it the command keeps what could be read. Throws SROutOfMemory rather than keep a part
    /// only. data is needed during the call only, unless the command is used as a reader.
    SRCommand(unsigned char type, const unsigned char* data, int length, bool throwFlag);
    /// Parses a message's body, without the leading byte of AMF3 messages.
    SRCommand(const krx::SingleMessagePtr& message, bool throwFlag);

    /// Number of a method name, ASCII case ignored; 0 when the table does not have it.
    static int mapCommand(const char* name);
    /// Name of a number; "" when there is none.
    static const char* commandName(int number);

    /// A Number; kCmdUnknown for other method names.
    int getCmd() const { return m_command; }
    const SRData& getMethodName() const { return m_methodName; }
    const SRData& getTrxID() const { return m_trxId; }
    const SRData& getCommandData() const { return m_commandData; }
    int argCount() const { return static_cast<int>(m_args.size()); }
    /// Argument i; an undefined value when there is none.
    const SRData& getArg(int i) const;
    /// Returns a new message with the bytes of argument index and advances index; null, with index unchanged,
    /// when that argument is no blob or too long.
    SRMessagePtr getArgAsMessage(int& index) const;

    void setCmd(int command) { m_command = command; }
    void setMethodName(const SRMBString& name) { m_methodName.init(name); }
    void setResponseSuccess() { m_methodName.init("_result"); }
    void setResponseFailure() { m_methodName.init("_error"); }
    void setTrxID(const SRData& id) { m_trxId = id; }
    /// Appends a property to the command data, which becomes an object when it is no array.
    void setResponseData(const SRMBString& name, const SRData& value);
    void setUserArg(const SRData& value) { m_args.push_back(value); }
    /// Appends a blob argument with the message's body.
    void setUserArgToMessage(const SRMessagePtr& message);
    void clearUserArgs() { m_args.clear(); }
    /// Appends a property to the first argument, which is made an object when there is none. An argument that
    /// is no array is reported and left alone.
    void setInfoProperty(const SRMBString& name, const SRData& value);
    /// The same, making an ECMA array.
    void setOnMetaDataProperty(const SRMBString& name, const SRData& value);
    /// Sets "level" and "code", "description" unless it is empty, and "details" when given.
    void setInfoObj(const SRMBString& level, const SRMBString& code, const SRMBString& description,
                    const SRData* details = nullptr);

    // Writing to the command's own buffer, which must be a writer's. False when a value could not be written.

    /// Method name, transaction id, command data and arguments.
    bool serializeCommandResponse();
    /// Method name and arguments.
    bool serializeDataResponse();

    // A new message with the serialized values in the command's encoding: type 20 and 18, or with AMF3 17 and
    // 15 (a zero byte first). Null when a value cannot be written or the body would be too long. Throws
    // SROutOfMemory.
    SRMessagePtr getCommandResponse() const;
    SRMessagePtr getDataResponse() const;

private:
    /// How far parsing came.
    enum class Stage
    {
        kNothing,
        kMethodName,
        kTrxId,
        kCommandData,
    };
    enum class Response
    {
        kCommand,
        kData,
    };

    void init(unsigned char type);
    void parse(bool isCommand);
    void parseOrTell(unsigned char type, bool isCommand);
    void tellFailure(unsigned char type);
    void readValue(SRData& value) { GetVar(&value, false); }
    void appendToFirstArg(const SRMBString& name, const SRData& value, SRDataKind kindOfNew);
    bool serializeTo(SRCSerializer& out, Response response) const;
    SRMessagePtr makeMessage(Response response) const;
    SRMessagePtr tryMakeMessage(Response response) const;

    int m_command = 0;
    SRData m_methodName;
    SRData m_trxId;
    SRData m_commandData;
    std::vector<SRData> m_args;
    const bool m_throwFlag = false;
    Stage m_stage = Stage::kNothing;
};
