/// The module's kernel event source: what it sends arrives as the kernel's own uevents do.
#ifndef UEVENT_SENDER_H
#define UEVENT_SENDER_H

#include <mutex>
#include <string>
#include <vector>

#include "Descriptor.h"
#include "Journal.h"

class UeventSender {
  public:
    /// Must be made inside the module's namespaces. Throws std::runtime_error.
    explicit UeventSender(Journal& journal);

    /// Sends the strings, each with its NUL, as one datagram from the kernel (port 0, group 1); the kernel appends
    /// "SEQNUM=..." itself. At most 2 KiB in all. Returns when it lies in the receive buffer of every listener that has
    /// room; throws std::runtime_error when the kernel refuses. Any thread.
    void Send(const std::vector<std::string>& strings);
    /// The same for bytes that are no proper event.
    void SendRaw(const std::string& bytes);

  private:
    void Relay(const std::string& bytes);

    Journal& journal;
    std::mutex mutex;  ///< one request and its acknowledgement at a time
    Descriptor descriptor;
};

#endif
