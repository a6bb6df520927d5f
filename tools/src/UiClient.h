/// The client end of the service's interface IEcallUIApp, on one thread: each operation runs the connection's
/// dispatcher until its reply is there or its limit is over.
///
///     UiClient client("xirtcp://127.0.0.1:50101");
///     client.Connect();
///     const UiValue before = client.Get(*FindConfigurationField(7));
///
/// Every operation belongs to the thread that made the client, blocks, and throws Failure: kNoService, kOtherPeer or
/// kRefused, with the URL and the remedy in its text.
#ifndef UI_CLIENT_H
#define UI_CLIENT_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "FileDescriptor.h"
#include "UiValues.h"
#include "xir_common_rpc.h"

constexpr const char* kDefaultUrl = "xirtcp://127.0.0.1:50101";
constexpr const char* kUiInterface = "com.vantu.ecalluiapp.iecalluiapp";
constexpr uint32_t kUiMajorVersion = 1;

/// The transport itself gives up every reply by then; a longer limit would not be kept.
constexpr std::chrono::milliseconds kLongestReply{30000};

struct UiLimits {
    std::chrono::milliseconds connect{2000};
    std::chrono::milliseconds reply{10000};
    /// The script takes its time, and the service answers nobody else meanwhile.
    std::chrono::milliseconds micTest{kLongestReply};
};

struct UiInterfaceVersion {
    std::string name;
    uint32_t major = 0;
    uint32_t minor = 0;
};

class UiClient {
  public:
    /// Throws Failure (kMisused) when the URL cannot be one. Connects with Connect.
    explicit UiClient(std::string url, UiLimits limits = {});
    UiClient(const UiClient&) = delete;
    UiClient& operator=(const UiClient&) = delete;
    ~UiClient();

    /// Waits for a connection, and asks who is there. After a loss again.
    void Connect();

    UiValue Get(const ConfigurationField& field);
    /// The service never refuses: only a read tells what it holds now.
    void Set(const ConfigurationField& field, const UiValue& value);
    std::string Version();
    UiInterfaceVersion InterfaceVersion();
    /// The value that the script has measured. kRefused: it failed.
    float MicTest();

    const std::string& Url() const { return url; }
    bool IsConnected() const;
    /// How often the connection has been lost: another number means that the service may have been restarted.
    unsigned Losses() const { return losses; }
    /// From now on SIGINT and SIGTERM end every wait early instead of the process.
    void StopOnSignals();
    bool IsStopped() const { return isStopped; }
    /// Lets time pass. Ends early when stopped.
    void Wait(std::chrono::milliseconds duration);

  private:
    struct Exchange;
    using Take = std::function<void(const ProtobufCMessage& reply)>;

    void Begin();
    void End();
    UiInterfaceVersion WhoIsThere();
    void Ask(unsigned method, const ProtobufCMessage& request, std::chrono::milliseconds limit, const Take& take);
    template <typename Reply, typename TakeReply>
    void AskFor(unsigned method, const ProtobufCMessage& request, std::chrono::milliseconds limit,
                const std::string& what, const TakeReply& take);
    void NoticeLoss();
    void RunUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit);
    [[noreturn]] void Fail(const std::string& method, std::chrono::milliseconds waited, bool isLost) const;
    void ReadSignal();
    static void OnConnection(xir_common_rpc_client* client, void* self, int32_t event);
    static void OnError(int32_t code, const char* message, void* self);

    const std::string url;
    const UiLimits limits;
    int32_t transport = 0;
    std::string address;
    ProtobufCRPCDispatch* dispatch = nullptr;
    xir_common_rpc_client* client = nullptr;
    FileDescriptor signals;
    bool isStopped = false;
    unsigned losses = 0;
    int32_t errorCode = 0;  ///< of the last error of the transport since the last request
    std::string errorText;
};

#endif
