/// Calls a dispatch thread to its dispatcher from any thread.
#ifndef XIR_WAKE_H
#define XIR_WAKE_H

#include <atomic>

#include "protobuf-c-rpc/protobuf-c-rpc-dispatch.h"
#include "xir_descriptor.h"

class XirWake {
  public:
    XirWake();
    explicit operator bool() const { return static_cast<bool>(event); }
    int Fd() const { return event.Get(); }
    /// Makes Fd readable. Rings that nobody has answered yet cost nothing.
    void Ring();
    /// Makes Fd quiet again. Look for work after it, not before: a ring in between would be lost.
    void Answer();

  private:
    XirDescriptor event;
    std::atomic<bool> rung{false};
};

#endif
