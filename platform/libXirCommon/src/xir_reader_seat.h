/// Who reads the connections of a dispatch thread, and how callers wait for what is read.
///
/// Normally the dispatch thread reads, and waiters sleep. While it is inside a handler, one waiter at a time takes the
/// seat and reads in its place: it completes replies, its own and those of others, and leaves everything else, in
/// order, to the dispatch thread. A caller's reply can therefore not be held back by a handler that waits for that very
/// caller.
///
///   dispatch  ──reads──┤handler ................├──reads──
///   waiter A  ..sleeps.┤reads, has its reply├→
///   waiter B  ..sleeps......................┤reads┤sleeps..
///
/// Lock order: the seat's mutex comes before a connection's reader lock, and that before the connection's state. No
/// lock is held while a callback runs.
#ifndef XIR_READER_SEAT_H
#define XIR_READER_SEAT_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "xir_common_osal.h"
#include "xir_stream.h"
#include "xir_wake.h"

using XirClock = std::chrono::steady_clock;

/// A connection as waiters see it; every operation from any thread.
class XirSharedConnection {
  public:
    virtual ~XirSharedConnection() = default;
    virtual bool HasCalls() const = 0;
    /// When the oldest call must have its reply; XirClock::time_point::max() without calls.
    virtual XirClock::time_point NextLimit() const = 0;
    /// Completes, as missing, the calls whose time is over.
    virtual void ExpireCalls() = 0;
    /// Null while not connected.
    virtual std::shared_ptr<XirStream> OpenStream() const = 0;
    /// Completes the replies among what was received already; first receives once, and flushes, as the poll events say.
    virtual void ReadInPlace(XirStream& stream, int pollEvents) = 0;
};

class XirReaderSeat {
  public:
    explicit operator bool() const { return static_cast<bool>(interrupt); }

    void Attach(std::shared_ptr<XirSharedConnection> connection);
    void Detach(const XirSharedConnection* connection);

    static void InitFlag(uint8_t* flag);
    void NotifyFlag(uint8_t* flag);
    /// Answers 0 when the flag is raised, negative when the seat was closed before that.
    int32_t WaitFlag(uint8_t* flag, bool onDispatchThread);
    /// Sends all waiters away and returns when the last has left.
    void Close();

    /// Lets the one who reads, if any, look at what has changed.
    void Interrupt();
    void EnterHandler();
    void LeaveHandler();

  private:
    using Connections = std::vector<std::shared_ptr<XirSharedConnection>>;

    void Call(bool wakeSleepers, bool interruptReader);
    bool HasCalls() const;
    XirClock::time_point NextLimit() const;
    void Sleep(std::unique_lock<std::mutex>& lock);
    void ReadOnce(std::unique_lock<std::mutex>& lock, const uint8_t* flag);
    void PollOnce(const Connections& readable);
    static void ExpireCalls(const Connections& expired);

    std::mutex mutex;
    std::condition_variable changed;  // a flag was raised, the seat is free, or it is closed
    Connections connections;
    XirWake interrupt;     // ends the poll of the one who reads
    int handlerDepth = 0;  // the dispatch thread is inside that many handlers
    unsigned handlersSoFar = 0;
    int visitors = 0;      // threads inside WaitFlag
    int sleepers = 0;      // of them, those that wait for `changed`
    bool taken = false;    // one of them reads
    bool polling = false;  // and waits for input right now
    bool closed = false;
};

/// Marks the dispatch thread as being inside a handler, for its life.
class XirHandlerScope {
  public:
    explicit XirHandlerScope(std::shared_ptr<XirReaderSeat> itsSeat) : seat(std::move(itsSeat)) {
        if (seat != nullptr) {
            seat->EnterHandler();
        }
    }
    XirHandlerScope(const XirHandlerScope&) = delete;
    XirHandlerScope& operator=(const XirHandlerScope&) = delete;
    ~XirHandlerScope() {
        if (seat != nullptr) {
            seat->LeaveHandler();
        }
    }

  private:
    std::shared_ptr<XirReaderSeat> seat;
};

/// The seat of a thread; null for a null handle.
std::shared_ptr<XirReaderSeat> XirSeatOf(xir_common_osal_thread_handle handle);

#endif
