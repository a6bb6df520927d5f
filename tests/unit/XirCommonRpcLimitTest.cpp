// The request limit. It is 30 s long and cannot be shortened, so what shares it waits for it together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "XirCommonRpcWorld.h"

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

namespace {

constexpr int32_t kFile = XIR_COMMON_RPC_TRANSPORT_FILE;
constexpr uint8_t kReply = 0;
constexpr uint8_t kNotification = 2;

/// A client with a peer that never answers, and how long a call to it takes.
struct Silent {
    explicit Silent(const std::string& path) : listener(RawSocket::ListenLocal(path)), client(kFile, path) {
        peer = listener.Accept();
        EXPECT_TRUE(client.WaitConnected());
    }
    void ExpectMissingAfterTheLimit() {
        const auto start = steady_clock::now();
        EXPECT_EQ(Call::kMissing, CallTrigger(client));
        ExpectLimit(steady_clock::now() - start);
    }
    static void ExpectLimit(steady_clock::duration taken) {
        EXPECT_GE(taken, seconds{30});
        EXPECT_LE(taken, seconds{45});  // the machine may be busy
    }

    RawSocket listener;
    RawSocket peer;
    Client client;
};

}  // namespace

TEST(XirCommonRpcLimit, ASilentPeerHoldsNobodyForLongerThanTheLimit) {
    const TemporaryFolder folder;

    // A caller whose dispatch thread works.
    Silent plain(folder.File("plain"));
    Caller plainCaller([&] { plain.ExpectMissingAfterTheLimit(); });
    const Bytes plainRequest = plain.peer.ReceiveFrame();

    // A caller whose dispatch thread is stuck, so that it reads for itself; and one more that sleeps meanwhile.
    Silent stuck(folder.File("stuck"));
    Signal inside;
    Signal out;
    stuck.client.OnMessage([&](const xir_common_rpc_header&) {
        inside.Raise();
        while (!out.Wait()) {
        }
    });
    stuck.peer.Send(Frame(kNotifyState, kNotification, 0, 0, StatePayload(1)));
    ASSERT_TRUE(inside.Wait());
    Caller reader([&] { stuck.ExpectMissingAfterTheLimit(); });
    const Bytes readerRequest = stuck.peer.ReceiveFrame();
    reader.WaitAsleep();
    Caller sleeper([&] { stuck.ExpectMissingAfterTheLimit(); });

    // A request that nobody waits for.
    Silent unattended(folder.File("unattended"));
    struct Completion {
        steady_clock::time_point start = steady_clock::now();
        steady_clock::time_point end;
        Signal done;
    } completion;
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    unattended.client.Service()->invoke(
        unattended.client.Service(), kTriggerEcall, &request.base,
        [](const ProtobufCMessage* reply, void* context) {
            EXPECT_EQ(nullptr, reply);
            auto& self = *static_cast<Completion*>(context);
            self.end = steady_clock::now();
            self.done.Raise();
        },
        &completion);
    // A second one later: its time is over later, too.
    std::this_thread::sleep_for(seconds{1});
    Completion second;
    unattended.client.Service()->invoke(
        unattended.client.Service(), kTriggerEcall, &request.base,
        [](const ProtobufCMessage*, void* context) {
            auto& self = *static_cast<Completion*>(context);
            self.end = steady_clock::now();
            self.done.Raise();
        },
        &second);

    plainCaller.Join();
    reader.Join();
    sleeper.Join();
    ASSERT_TRUE(completion.done.Wait());
    Silent::ExpectLimit(completion.end - completion.start);
    ASSERT_TRUE(second.done.Wait());
    Silent::ExpectLimit(second.end - second.start);

    // The replies that come now are dropped in silence, and the connections still serve.
    plain.peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(plainRequest), {0x08, 1}));
    stuck.peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(readerRequest), {0x08, 1}));
    for (Silent* each : {&plain, &stuck}) {
        Caller caller([&] { EXPECT_EQ(0, CallCancel(each->client)); });
        Bytes next = each->peer.ReceiveFrame();
        while (MethodOf(next) == kTriggerEcall) {
            next = each->peer.ReceiveFrame();
        }
        each->peer.Send(Frame(kUserRequestCancel, kReply, 0, IdOf(next), {0x08, 0}));
    }
    EXPECT_THAT(plain.client.errors.Lines(), testing::ElementsAre(HasSubstr("no reply to method 0 within 30 s")));
    EXPECT_EQ(2U, stuck.client.errors.Lines().size());
    EXPECT_EQ(2U, unattended.client.errors.Lines().size());
    EXPECT_EQ(0, plain.client.closed.Count());
    out.Raise();
    stuck.client.thread.Do([] {});  // it has left the handler
}
