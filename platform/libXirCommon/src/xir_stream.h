/// One connected socket with what waits on both sides of it.
///
/// The output side is safe from any thread. The input side belongs to the one who holds `reader`: that lock is the
/// reader role of the connection, and is never held while a callback runs.
#ifndef XIR_STREAM_H
#define XIR_STREAM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "protobuf-c-rpc/protobuf-c-rpc-dispatch.h"
#include "xir_byte_queue.h"
#include "xir_descriptor.h"

/// More output than this waiting for one peer, or more input waiting for one dispatch thread, ends the connection.
constexpr size_t kXirQueueLimit = size_t{4} << 20;

enum class XirSent {
    Whole,   ///< the kernel has it all
    Queued,  ///< the rest waits for Flush, when the socket can be written again
    Full,    ///< nothing was taken: the peer does not read
    Failed   ///< the connection is gone; reading shows why
};

enum class XirReceived {
    Some,     ///< some were added to the input
    Nothing,  ///< none there now
    End,      ///< the peer closed
    Failed    ///< errno says why
};

class XirStream {
  public:
    explicit XirStream(XirDescriptor connected) : socket(std::move(connected)) {}

    int Fd() const { return socket.Get(); }

    /// Writes straight to the socket unless something waits before it. Never blocks.
    XirSent Send(std::span<const uint8_t> frame);
    XirSent Flush();
    bool HasOutput() const { return hasOutput.load(std::memory_order_acquire); }
    /// What a dispatcher should watch the socket for.
    unsigned WantedEvents() const {
        const unsigned always = PROTOBUF_C_RPC_EVENT_READABLE;
        return HasOutput() ? always | PROTOBUF_C_RPC_EVENT_WRITABLE : always;
    }
    /// Ends both directions; the descriptor stays valid until the last user of the stream is gone.
    void Shutdown();

    /// One receive, with the reader role held. Never blocks.
    XirReceived Receive();
    /// Whether a receive would bring something, be it the end. Never blocks.
    bool HasUnread() const;

    std::mutex reader;
    XirByteQueue input;     ///< received, not looked at
    XirByteQueue deferred;  ///< whole frames that a waiter read and only the dispatch thread may handle

  private:
    /// Writes what the socket takes of the bytes: their number, or -1 when the connection is gone.
    ssize_t Write(std::span<const uint8_t> bytes);

    XirDescriptor socket;
    std::mutex writer;
    XirByteQueue output;
    std::atomic<bool> hasOutput{false};
};

#endif
