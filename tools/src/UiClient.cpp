// The traps: a completion may come at once, inside the call that makes the request; and one that is waited for in vain
// would come later, into a frame that is gone. So a request that is given up ends the connection, which completes it.
#include "UiClient.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "Failure.h"
#include "XirRpcUrl.h"
#include "lib_c/src-gen/ecallUIapp.pb-c.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const ProtobufCServiceDescriptor& kService = com__vantu__ecalluiapp__iecall_uiapp__descriptor;

/// The methods, by their index on the wire.
enum Method : unsigned { kGetParameter, kSetParameter, kGetVersion, kRunMicTest, kGetInterfaceVersion };

std::string Seconds(milliseconds limit) {
    const std::string tenths = std::to_string(limit.count() / 100 % 10);
    return std::to_string(limit.count() / 1000) + (tenths == "0" ? "" : "." + tenths) + " s";
}

/// The tool's only thread dispatches.
uint8_t IsDispatchThread(xir_common_osal_thread_handle /*handle*/) {
    return 1;
}

UiValue ReadReply(const ConfigurationField& field, const Com__Vantu__Ecalluiapp__TCfgParamValue& value) {
    const UiValue like = DefaultOf(field);
    if (std::holds_alternative<bool>(like)) {
        return value.boolvalue != 0;
    }
    if (std::holds_alternative<int32_t>(like)) {
        return value.intvalue;
    }
    return std::string(value.strvalue);
}

}  // namespace

/// A request that waits for its reply.
struct UiClient::Exchange {
    const Take& take;
    bool isDone = false;
    bool hasReply = false;

    static void Complete(const ProtobufCMessage* reply, void* context) {
        Exchange& self = *static_cast<Exchange*>(context);
        self.isDone = true;
        self.hasReply = reply != nullptr;
        if (reply != nullptr) {
            self.take(*reply);
        }
    }
};

UiClient::UiClient(std::string itsUrl, UiLimits itsLimits) : url(std::move(itsUrl)), limits(itsLimits) {
    const auto parsed = XirRpcParseUrl(url.c_str());
    if (!parsed) {
        throw Failure(kMisused, Quoted(url) +
                                    " is no URL of a service: it begins with xirtcp:// and goes on with "
                                    "HOST:PORT, or with xirfile:// and goes on with a path");
    }
    transport = parsed->transport;
    address = parsed->text;
    dispatch = protobuf_c_rpc_dispatch_new(nullptr);
    if (dispatch == nullptr) {
        throw Failure(kNoService, "no memory or descriptors for a connection");
    }
    try {
        Begin();
    } catch (...) {
        protobuf_c_rpc_dispatch_free(dispatch);
        throw;
    }
}

UiClient::~UiClient() {
    End();
    protobuf_c_rpc_dispatch_free(dispatch);
}

// The connection.

void UiClient::Begin() {
    client = xir_common_rpc_client_new(transport, address.c_str(), &kService, dispatch, this);
    if (client == nullptr) {
        throw Failure(kMisused, Quoted(url) +
                                    " names no address: a host is an IPv4 address, an IPv6 address in "
                                    "brackets or localhost, with :PORT behind it; a path has 107 bytes at most");
    }
    xir_common_rpc_client_set_error_handler(client, OnError, this);
    xir_common_rpc_client_set_rpc_protocol(client, xir_common_rpc_client_serialize, xir_common_rpc_deserialize);
    xir_common_rpc_client_configure_threading(client, IsDispatchThread, nullptr);
    xir_common_rpc_client_register_connection_callback(client, OnConnection);
}

void UiClient::End() {
    if (client != nullptr) {
        protobuf_c_service_destroy(reinterpret_cast<ProtobufCService*>(std::exchange(client, nullptr)));
        ++losses;
    }
}

void UiClient::OnError(int32_t code, const char* message, void* self) {
    static_cast<UiClient*>(self)->errorCode = code;
    static_cast<UiClient*>(self)->errorText = message;
}

void UiClient::OnConnection(xir_common_rpc_client* /*client*/, void* self, int32_t event) {
    static_cast<UiClient*>(self)->losses += event == XIR_COMMON_RPC_EVENT_CLOSED ? 1 : 0;
}

bool UiClient::IsConnected() const {
    return client != nullptr && xir_common_rpc_client_is_connected(client) != 0;
}

/// A service that does not know the question, or refuses the answer, is another one. One that has no place for a client
/// takes its connection only to end it.
UiInterfaceVersion UiClient::WhoIsThere() try { return InterfaceVersion(); } catch (const ConnectionLost&) {
    throw Failure(kNoService, "the service at " + url +
                                  " ended the connection at once: does it have 64 clients already? End one of them; "
                                  "or see whether it is still running");
} catch (const Failure& failure) {
    if (failure.status == kRefused) {
        throw Failure(kOtherPeer, "at " + url + " listens who is not the service (" + failure.what() +
                                      "): give its address with --url");
    }
    throw;
}

void UiClient::Connect() {
    if (client == nullptr) {
        Begin();
    }
    NoticeLoss();
    RunUntil([this] { return IsConnected(); }, limits.connect);
    if (!IsConnected()) {
        throw Failure(kNoService,
                      "no service at " + url + ": is it running?" + (errorText.empty() ? "" : " (" + errorText + ")"));
    }
    const UiInterfaceVersion found = WhoIsThere();
    if (found.name != kUiInterface) {
        throw Failure(kOtherPeer, "at " + url + " another service listens, " + Quoted(found.name) + " instead of \"" +
                                      kUiInterface + "\": give this one's address with --url");
    }
    if (found.major != kUiMajorVersion) {
        throw Failure(kOtherPeer, "the service at " + url + " speaks version " + std::to_string(found.major) + "." +
                                      std::to_string(found.minor) + " of the interface, this program version " +
                                      std::to_string(kUiMajorVersion) + ": use the program that came with the service");
    }
}

// Waiting.

/// Runs the dispatcher until something is done, the limit is over, or a signal stops it all.
void UiClient::RunUntil(const std::function<bool()>& isDone, milliseconds limit) {
    bool isOver = false;
    ProtobufCRPCDispatchTimer* const timer = protobuf_c_rpc_dispatch_add_timer_millis(
        dispatch, static_cast<unsigned>(limit.count()),
        [](ProtobufCRPCDispatch*, void* over) { *static_cast<bool*>(over) = true; }, &isOver);
    if (timer == nullptr) {
        throw Failure(kNoService, "no memory for a timer");
    }
    while (!isDone() && !isOver && !isStopped) {
        protobuf_c_rpc_dispatch_run(dispatch);
    }
    if (!isOver) {
        protobuf_c_rpc_dispatch_remove_timer(timer);
    }
}

/// A request whose write fails completes at once, and only the dispatcher sees that the connection is lost.
void UiClient::NoticeLoss() {
    RunUntil([] { return false; }, milliseconds{0});
}

void UiClient::Wait(milliseconds duration) {
    RunUntil([] { return false; }, duration);
}

void UiClient::StopOnSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signals = FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.IsOpen()) {
        sigprocmask(SIG_UNBLOCK, &set, nullptr);  // then a signal ends the process, as it did before
        return;
    }
    protobuf_c_rpc_dispatch_watch_fd(
        dispatch, signals.get(), PROTOBUF_C_RPC_EVENT_READABLE,
        [](ProtobufC_RPC_FD, unsigned, void* self) { static_cast<UiClient*>(self)->ReadSignal(); }, this);
}

void UiClient::ReadSignal() {
    signalfd_siginfo signal{};
    isStopped = isStopped || read(signals.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal);
}

// Requests.

void UiClient::Ask(unsigned method, const ProtobufCMessage& request, milliseconds limit, const Take& take) {
    const std::string name = kService.methods[method].name;
    if (!IsConnected()) {
        throw Failure(kNoService, "the service at " + url + " is gone: is it running?");
    }
    errorCode = 0;
    errorText.clear();
    const unsigned lossesBefore = losses;
    Exchange exchange{.take = take};
    auto* const service = reinterpret_cast<ProtobufCService*>(client);
    service->invoke(service, method, &request, Exchange::Complete, &exchange);
    const auto begin = Clock::now();
    RunUntil([&] { return exchange.isDone; }, limit);
    const bool wasCut = !exchange.isDone;
    if (wasCut) {
        End();
    }
    if (isStopped && !exchange.hasReply) {
        throw Failure(kNoService, "stopped while waiting for the reply to " + name);
    }
    if (!exchange.hasReply) {
        NoticeLoss();
        const auto waited = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
        Fail(name, wasCut || errorCode == -ETIMEDOUT ? std::min(limit, waited) : milliseconds{0},
             losses != lossesBefore);
    }
}

/// waited: for a reply in vain; 0: it was not for want of time. isLost: the connection was, perhaps for another one.
void UiClient::Fail(const std::string& method, milliseconds waited, bool isLost) const {
    if (waited > milliseconds{0}) {
        throw NoReply("no reply to " + method + " from " + url + " within " + Seconds(waited) +
                      ": does a microphone test run, or hang? Try again, or restart the service");
    }
    if (errorCode == -EBADMSG || errorCode == -EPROTO) {
        throw Failure(kOtherPeer, "who listens at " + url + " does not talk as the service does (" + errorText +
                                      "): is it the service, and of this version?");
    }
    if (isLost) {
        throw ConnectionLost("the connection to " + url + " was lost during " + method +
                             ": is the service still running?");
    }
    throw Failure(kRefused, "the service at " + url + " refused " + method +
                                ": it does not know the request; use the program that came with the service");
}

/// The same, for the reply's own type and only when its responsecode is 0. what: for the complaint when it is not.
template <typename Reply, typename TakeReply>
void UiClient::AskFor(unsigned method, const ProtobufCMessage& request, milliseconds limit, const std::string& what,
                      const TakeReply& take) {
    uint32_t code = 0;
    Ask(method, request, limit, [&](const ProtobufCMessage& message) {
        const auto& reply = reinterpret_cast<const Reply&>(message);
        code = reply.responsecode;
        take(reply);
    });
    if (code != 0) {
        throw Failure(kRefused, what + " failed: the service answered " + std::to_string(static_cast<int32_t>(code)));
    }
}

UiValue UiClient::Get(const ConfigurationField& field) {
    Com__Vantu__Ecalluiapp__GetUiCfgParameterRequest request =
        COM__VANTU__ECALLUIAPP__GET_UI_CFG_PARAMETER_REQUEST__INIT;
    request.cfgparamname = static_cast<Com__Vantu__Ecalluiapp__TEcallUICfgParamName>(field.number);
    UiValue value;
    AskFor<Com__Vantu__Ecalluiapp__GetUiCfgParameterResponse>(
        kGetParameter, request.base, limits.reply, "reading " + std::string(field.key),
        [&](const auto& reply) { value = ReadReply(field, *reply.paramvalue); });
    return value;
}

void UiClient::Set(const ConfigurationField& field, const UiValue& value) {
    Com__Vantu__Ecalluiapp__TCfgParamValue triple = COM__VANTU__ECALLUIAPP__TCFG_PARAM_VALUE__INIT;
    std::string text;
    if (const auto* const boolean = std::get_if<bool>(&value)) {
        triple.boolvalue = *boolean ? 1 : 0;
    } else if (const auto* const number = std::get_if<int32_t>(&value)) {
        triple.intvalue = *number;
    } else {
        text = std::get<std::string>(value);
    }
    triple.strvalue = text.data();
    Com__Vantu__Ecalluiapp__SetUiCfgParameterRequest request =
        COM__VANTU__ECALLUIAPP__SET_UI_CFG_PARAMETER_REQUEST__INIT;
    request.cfgparamname = static_cast<Com__Vantu__Ecalluiapp__TEcallUICfgParamName>(field.number);
    request.paramvalue = &triple;
    AskFor<Com__Vantu__Ms__Protobuf__VoidResponse>(kSetParameter, request.base, limits.reply,
                                                   "setting " + std::string(field.key), [](const auto& /*reply*/) {});
}

std::string UiClient::Version() {
    const Com__Vantu__Ecalluiapp__GetUiVersionRequest request = COM__VANTU__ECALLUIAPP__GET_UI_VERSION_REQUEST__INIT;
    std::string version;
    AskFor<Com__Vantu__Ecalluiapp__GetUiVersionResponse>(kGetVersion, request.base, limits.reply,
                                                         "asking for the version",
                                                         [&](const auto& reply) { version = reply.strversion; });
    return version;
}

UiInterfaceVersion UiClient::InterfaceVersion() {
    const Com__Vantu__Ms__Protobuf__GetRemoteVersionRequest request =
        COM__VANTU__MS__PROTOBUF__GET_REMOTE_VERSION_REQUEST__INIT;
    UiInterfaceVersion version;
    AskFor<Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse>(
        kGetInterfaceVersion, request.base, limits.reply, "asking for the interface's version",
        [&](const auto& reply) { version = {.name = reply.name, .major = reply.major, .minor = reply.minor}; });
    return version;
}

float UiClient::MicTest() {
    const Com__Vantu__Ecalluiapp__RunAnalogMicTestRequest request =
        COM__VANTU__ECALLUIAPP__RUN_ANALOG_MIC_TEST_REQUEST__INIT;
    float value = 0;
    AskFor<Com__Vantu__Ecalluiapp__RunAnalogMicTestResponse>(kRunMicTest, request.base, limits.micTest,
                                                             "the microphone test",
                                                             [&](const auto& reply) { value = reply.value; });
    return value;
}
