// The frame of the wire, byte by byte, in both directions.
#include "xir_frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "XirCommonRpcWorld.h"
#include "xir_byte_queue.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr uint8_t kReply = XIR_COMMON_RPC_KIND_REPLY;
constexpr uint8_t kRequest = XIR_COMMON_RPC_KIND_REQUEST;
constexpr uint8_t kNotification = XIR_COMMON_RPC_KIND_NOTIFICATION;

const Bytes kTriggerPayload = {0x08, 0x01};  // automatic = true

/// What reading some bytes gives.
struct Read {
    int32_t result;
    xir_common_rpc_header header = {};
    size_t consumed = 0;

    explicit Read(const Bytes& bytes) {
        result = xir_common_rpc_deserialize(&kEcallApp, bytes.data(), bytes.size(), &header, &consumed);
    }
    Read(const Read&) = delete;
    Read& operator=(const Read&) = delete;
    ~Read() { protobuf_c_message_free_unpacked(header.message, nullptr); }
};

Bytes Serialize(uint16_t method, uint8_t kind, uint8_t status, uint32_t id, const ProtobufCMessage* message) {
    const xir_common_rpc_header header = {.method_index = method,
                                          .kind = kind,
                                          .status = status,
                                          .request_id = id,
                                          .message = const_cast<ProtobufCMessage*>(message)};
    XirFrameBuffer frame;
    EXPECT_EQ(0, xir_common_rpc_client_serialize(&header, frame.Sink()));
    XirFrameBuffer fromServer;
    EXPECT_EQ(0, xir_common_rpc_server_serialize(&header, fromServer.Sink()));
    EXPECT_THAT(fromServer.Bytes(), ElementsAreArray(frame.Bytes()));
    return {frame.Bytes().begin(), frame.Bytes().end()};
}

/// A getVersion reply with a text of this length, and what it packs to.
struct VersionReply {
    explicit VersionReply(size_t length) : text(length, 'v') { message.strversion = text.data(); }
    std::string text;
    Com__Vantu__Ecallapp__GetVersionResponse message = COM__VANTU__ECALLAPP__GET_VERSION_RESPONSE__INIT;
    size_t PackedSize() const { return protobuf_c_message_get_packed_size(&message.base); }
};

/// The longest text with which the reply still fits a frame.
size_t LongestText() {
    const size_t overhead = VersionReply(kXirFramePayloadLimit).PackedSize() - kXirFramePayloadLimit;
    return kXirFramePayloadLimit - overhead;
}

}  // namespace

TEST(XirFrame, ARequestIsTwelveBytesOfHeaderAndThePackedMessage) {
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    request.automatic = 1;

    EXPECT_THAT(Serialize(kTriggerEcall, kRequest, 0, 0x04030201, &request.base),
                ElementsAre(2, 0, 0, 0,    // payload length
                            0, 0,          // method index
                            1,             // request
                            0,             // status
                            1, 2, 3, 4,    // request id, the low byte first
                            0x08, 0x01));  // automatic = true
}

TEST(XirFrame, TheExamplesOfTheDocumentAreTheseBytes) {
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    request.automatic = 1;
    EXPECT_EQ((Bytes{0x02, 0, 0, 0, 0, 0, 0x01, 0, 0x2a, 0, 0, 0, 0x08, 0x01}),
              Serialize(kTriggerEcall, kRequest, 0, 42, &request.base));

    const Com__Vantu__Ms__Protobuf__VoidResponse reply = COM__VANTU__MS__PROTOBUF__VOID_RESPONSE__INIT;
    EXPECT_EQ((Bytes{0x02, 0, 0, 0, 0, 0, 0, 0, 0x2a, 0, 0, 0, 0x08, 0x00}),
              Serialize(kTriggerEcall, kReply, 0, 42, &reply.base));

    Com__Vantu__Ecallapp__TEcallappState state = COM__VANTU__ECALLAPP__TECALLAPP_STATE__INIT;
    state.servicestate = COM__VANTU__ECALLAPP__TECALLAPP_SERVICE_STATE__TEcallappServiceState_ActiveAutomaticECall;
    state.networkstate = COM__VANTU__ECALLAPP__TNETWORK_STATE__TNetworkState_CsFullService;
    state.callstate = COM__VANTU__ECALLAPP__TECALLAPP_CALL_STATE__TEcallappCallState_Connected_Voice;
    state.audiooutstate = COM__VANTU__ECALLAPP__TAUDIO_OUT_STATE__TAudioOutState_VoiceCall;
    state.selfteststate = COM__VANTU__ECALLAPP__TSELF_TEST_STATE__TSelfTestState_Unknown;
    Com__Vantu__Ecallapp__NotifyNotifyStateUpdate update = COM__VANTU__ECALLAPP__NOTIFY_NOTIFY_STATE_UPDATE__INIT;
    update.ecallappstate = &state;
    EXPECT_EQ((Bytes{0x0e, 0,    0,    0,    0x12, 0,    0x02, 0,    0,    0,    0,    0,    0x12,
                     0x0c, 0x08, 0x65, 0x10, 0x00, 0x18, 0x05, 0x20, 0x03, 0x28, 0x02, 0x30, 0x02}),
              Serialize(kNotifyState, kNotification, 0, 0, &update.base));
}

TEST(XirFrame, AReplyWithAStatusHasNoPayload) {
    EXPECT_THAT(Serialize(0x0102, kReply, XIR_COMMON_RPC_STATUS_REFUSED, 7, nullptr),
                ElementsAre(0, 0, 0, 0, 0x02, 0x01, 0, 3, 7, 0, 0, 0));
}

TEST(XirFrame, TheFramesOfTheseTestsAreTheSameBytes) {
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    request.automatic = 1;

    EXPECT_EQ(Frame(kTriggerEcall, kRequest, 0, 99, kTriggerPayload),
              Serialize(kTriggerEcall, kRequest, 0, 99, &request.base));
}

TEST(XirFrame, EachKindIsUnpackedWithItsOwnMessageType) {
    const Read request(Frame(kTriggerEcall, kRequest, 0, 5, kTriggerPayload));
    ASSERT_EQ(XIR_COMMON_RPC_COMPLETE, request.result);
    EXPECT_EQ(&com__vantu__ecallapp__trigger_ecall_request__descriptor, request.header.message->descriptor);
    EXPECT_EQ(5U, request.header.request_id);
    EXPECT_EQ(14U, request.consumed);

    const Read reply(Frame(kTriggerEcall, kReply, 0, 5, {0x08, 0x00}));
    ASSERT_EQ(XIR_COMMON_RPC_COMPLETE, reply.result);
    EXPECT_EQ(&com__vantu__ms__protobuf__void_response__descriptor, reply.header.message->descriptor);

    const Read notification(Frame(kNotifyState, kNotification, 0, 0, StatePayload(3)));
    ASSERT_EQ(XIR_COMMON_RPC_COMPLETE, notification.result);
    EXPECT_EQ(kNotifyState, notification.header.method_index);
    EXPECT_EQ(kNotification, notification.header.kind);
    EXPECT_EQ(&com__vantu__ecallapp__notify_notify_state_update__descriptor, notification.header.message->descriptor);
}

TEST(XirFrame, AFrameCutAnywhereNeedsMore) {
    const Bytes whole = Frame(kNotifyState, kNotification, 0, 0, StatePayload(3));

    for (size_t length = 0; length < whole.size(); ++length) {
        const Read cut(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
        EXPECT_EQ(XIR_COMMON_RPC_NEED_MORE, cut.result) << length;
        EXPECT_EQ(nullptr, cut.header.message);
    }
}

TEST(XirFrame, OnlyTheFirstFrameIsConsumed) {
    Bytes two = Frame(kTriggerEcall, kRequest, 0, 1, kTriggerPayload);
    const size_t first = two.size();
    const Bytes second = Frame(kTriggerEcall, kRequest, 0, 2, kTriggerPayload);
    two.insert(two.end(), second.begin(), second.end());

    const Read read(two);

    EXPECT_EQ(first, read.consumed);
    EXPECT_EQ(1U, read.header.request_id);
}

TEST(XirFrame, WhatIsNoFrameOfThisWireBreaksIt) {
    const struct {
        const char* why;
        Bytes bytes;
    } kBroken[] = {
        {"kind 3", Frame(0, 3, 0, 1)},
        {"kind 255", Frame(0, 255, 0, 1)},
        {"status 4 in a reply", Frame(0, kReply, 4, 1)},
        {"payload in a reply with a status", Frame(0, kReply, 1, 1, {0x08, 0x00})},
        {"status in a request", Frame(0, kRequest, 1, 1)},
        {"status in a notification", Frame(kNotifyState, kNotification, 1, 0)},
        {"request id in a notification", Frame(kNotifyState, kNotification, 0, 1, StatePayload(0))},
        {"payload of 1 MiB and 1 byte", {0x01, 0x00, 0x10, 0x00, 0, 0, 1, 0, 1, 0, 0, 0}},
        {"payload of 4 GiB", {0xff, 0xff, 0xff, 0xff, 0, 0, 1, 0, 1, 0, 0, 0}},
    };
    for (const auto& each : kBroken) {
        EXPECT_EQ(XIR_COMMON_RPC_BROKEN, Read(each.bytes).result) << each.why;
    }
}

TEST(XirFrame, EachStatusOfAReplyIsReadWithoutAMessage) {
    for (const uint8_t status : Bytes{1, 2, 3}) {
        const Read read(Frame(kTriggerEcall, kReply, status, 8));
        EXPECT_EQ(XIR_COMMON_RPC_COMPLETE, read.result);
        EXPECT_EQ(status, read.header.status);
        EXPECT_EQ(nullptr, read.header.message);
    }
}

TEST(XirFrame, AMethodThatTheServiceLacksIsConsumedWhole) {
    for (const uint8_t kind : {kReply, kRequest}) {
        const Read read(Frame(22, kind, 0, 8, {1, 2, 3}));
        EXPECT_EQ(XIR_COMMON_RPC_UNKNOWN_METHOD, read.result);
        EXPECT_EQ(22, read.header.method_index);
        EXPECT_EQ(8U, read.header.request_id);
        EXPECT_EQ(15U, read.consumed);
        EXPECT_EQ(nullptr, read.header.message);
    }
}

TEST(XirFrame, APayloadThatIsNoMessageOfTheMethodIsConsumedWhole) {
    for (const Bytes& payload : {Bytes{}, Bytes{0xff}, Bytes{0x10, 0x01}, Bytes{0x08}}) {  // the last ones: a required
        const Read read(Frame(kTriggerEcall, kRequest, 0, 8, payload));                    // field missing, cut off
        EXPECT_EQ(XIR_COMMON_RPC_BAD_PAYLOAD, read.result);
        EXPECT_EQ(12 + payload.size(), read.consumed);
        EXPECT_EQ(nullptr, read.header.message);
    }
}

TEST(XirFrame, AnEmptyPayloadIsAMessageWithoutFields) {
    const Read read(Frame(kUserRequestCancel, kRequest, 0, 8));

    EXPECT_EQ(XIR_COMMON_RPC_COMPLETE, read.result);
    EXPECT_NE(nullptr, read.header.message);
}

TEST(XirFrame, TheLongestPayloadGoesBothWays) {
    const VersionReply reply(LongestText());
    ASSERT_EQ(kXirFramePayloadLimit, reply.PackedSize());

    const Bytes frame = Serialize(kGetVersion, kReply, 0, 1, &reply.message.base);
    const Read read(frame);

    EXPECT_EQ(kXirFrameSizeLimit, frame.size());
    ASSERT_EQ(XIR_COMMON_RPC_COMPLETE, read.result);
    const auto* message = reinterpret_cast<const Com__Vantu__Ecallapp__GetVersionResponse*>(read.header.message);
    EXPECT_EQ(reply.text, message->strversion);
}

TEST(XirFrame, OneByteMoreIsNotSerialized) {
    const VersionReply reply(LongestText() + 1);
    const xir_common_rpc_header header = {.method_index = kGetVersion,
                                          .kind = kReply,
                                          .status = 0,
                                          .request_id = 1,
                                          .message = const_cast<ProtobufCMessage*>(&reply.message.base)};
    XirFrameBuffer frame;

    EXPECT_GT(0, xir_common_rpc_server_serialize(&header, frame.Sink()));
    EXPECT_TRUE(frame.Bytes().empty());
}

TEST(XirFrame, APayloadThatWouldUnpackToFarMoreThanItsSizeIsRefused) {
    Bytes unknownFields;
    while (unknownFields.size() + 2 <= kXirFramePayloadLimit) {
        unknownFields.push_back(0x78);  // field 15, a number
        unknownFields.push_back(0x00);
    }

    const Read read(Frame(kUserRequestCancel, kRequest, 0, 1, unknownFields));

    EXPECT_EQ(XIR_COMMON_RPC_BAD_PAYLOAD, read.result);
}

/// Frames as an end with this deserialiser sees them.
XirFrame FirstFrame(xir_common_rpc_deserialize_fn deserialize, const Bytes& bytes) {
    return XirFirstFrame({&kEcallApp, xir_common_rpc_client_serialize, deserialize}, bytes);
}

TEST(XirFrame, TheFirstFrameOfTheBytesComesWithItsMessage) {
    Bytes bytes = Frame(kTriggerEcall, kRequest, 0, 5, kTriggerPayload);
    bytes.push_back(0xff);

    const XirFrame frame = FirstFrame(xir_common_rpc_deserialize, bytes);

    EXPECT_EQ(XIR_COMMON_RPC_COMPLETE, frame.result);
    EXPECT_EQ(14U, frame.size);
    ASSERT_NE(nullptr, frame.message);
    EXPECT_EQ(frame.header.message, frame.message.get());
}

TEST(XirFrame, WithoutBytesNoDeserialiserIsAsked) {
    const auto never = [](const ProtobufCServiceDescriptor*, const uint8_t*, size_t, xir_common_rpc_header*, size_t*) {
        ADD_FAILURE() << "asked";
        return int32_t{XIR_COMMON_RPC_BROKEN};
    };

    EXPECT_EQ(XIR_COMMON_RPC_NEED_MORE, FirstFrame(never, {}).result);
}

TEST(XirFrame, ADeserialiserThatAsksForMoreThanAFrameIsBroken) {
    const auto greedy = [](const ProtobufCServiceDescriptor*, const uint8_t*, size_t, xir_common_rpc_header*,
                           size_t* consumed) {
        *consumed = 1;
        return int32_t{XIR_COMMON_RPC_NEED_MORE};
    };

    const XirFrame cut = FirstFrame(greedy, Bytes(kXirFrameSizeLimit - 1));
    EXPECT_EQ(XIR_COMMON_RPC_NEED_MORE, cut.result);
    EXPECT_EQ(0U, cut.size);
    EXPECT_EQ(XIR_COMMON_RPC_BROKEN, FirstFrame(greedy, Bytes(kXirFrameSizeLimit)).result);
}

TEST(XirFrame, ADeserialiserThatConsumesNothingOrMoreThanThereIsIsBroken) {
    static size_t claimed;
    const auto liar = [](const ProtobufCServiceDescriptor*, const uint8_t*, size_t, xir_common_rpc_header*,
                         size_t* consumed) {
        *consumed = claimed;
        return int32_t{XIR_COMMON_RPC_UNKNOWN_METHOD};
    };

    for (const auto& [size, result] : {std::pair{size_t{0}, XIR_COMMON_RPC_BROKEN},
                                       {size_t{20}, XIR_COMMON_RPC_UNKNOWN_METHOD},
                                       {size_t{21}, XIR_COMMON_RPC_BROKEN}}) {
        claimed = size;
        EXPECT_EQ(result, FirstFrame(liar, Bytes(20)).result) << size;
    }
}

TEST(XirByteQueue, BytesLeaveInTheOrderInWhichTheyCame) {
    XirByteQueue queue;
    Bytes in;
    Bytes out;
    uint8_t next = 0;
    for (size_t round = 1; round < 2000; ++round) {
        Bytes chunk;
        for (size_t index = 0; index < round % 37; ++index) {
            chunk.push_back(next++);
        }
        queue.Append(chunk);
        in.insert(in.end(), chunk.begin(), chunk.end());
        const size_t size = std::min(queue.Size(), round % 41);
        out.insert(out.end(), queue.Bytes().begin(), queue.Bytes().begin() + static_cast<ptrdiff_t>(size));
        queue.Consume(size);
    }
    out.insert(out.end(), queue.Bytes().begin(), queue.Bytes().end());

    EXPECT_EQ(in, out);
}

TEST(XirByteQueue, TakesAtMostTwiceTheMemoryOfWhatItHeldAtOnce) {
    XirByteQueue queue;
    size_t most = 0;
    for (size_t round = 0; round < 2000; ++round) {
        queue.Append(Bytes(100 + round * 7919 % 900));
        most = std::max(most, queue.Size());
        EXPECT_LE(queue.Capacity(), 2 * most) << round;
        queue.Consume(std::min(queue.Size(), round < 50 ? 10 : 100 + round * 104729 % 900));
    }

    EXPECT_GT(most, 10'000U);
}

TEST(XirByteQueue, RoomIsFilledFromItsStart) {
    XirByteQueue queue;
    queue.Append(Bytes{1, 2, 3});
    queue.Consume(1);

    const auto room = queue.Room(100);
    ASSERT_GE(room.size(), 100U);
    room[0] = 4;
    queue.Grow(1);

    EXPECT_THAT(queue.Bytes(), ElementsAre(2, 3, 4));
    queue.Clear();
    EXPECT_TRUE(queue.IsEmpty());
}
