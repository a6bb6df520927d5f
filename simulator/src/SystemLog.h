/// The module's system log: the socket /dev/log, each message an entry of the journal.
#ifndef SYSTEM_LOG_H
#define SYSTEM_LOG_H

#include <string>
#include <thread>

#include "Descriptor.h"
#include "Journal.h"

class SystemLog {
  public:
    /// socket  path of the socket to make, as the host sees it. Throws std::runtime_error.
    SystemLog(Journal& journal, const std::string& socket);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    /// Takes a message apart into sender, text and number: "<13>Nov 21 03:18:00 name[42]: text".
    static Entry Parse(const std::string& message);

  private:
    void Run();

    Journal& journal;
    Descriptor descriptor;
    Descriptor stop;
    std::thread reader;
};

#endif
